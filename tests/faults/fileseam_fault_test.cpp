// The tag flows with faults at the file seam: short reads and writes and EINTR
// change nothing; a failed read or a full disk give a refusal with the file
// byte for byte as it was; a write failing in the middle of a move and a file
// that shrinks while read are reported.

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "faultio.h"
#include "support/clString.h"
#include "tags/stdtags.h"
#include "tests/tags/tagbytes.h"
#include "tests/tags/tagfixture.h"

using namespace tagtest;

namespace {

constexpr size_t kAudioSize = 80000;

enum class Start { Ape, Id3v2, Both };
enum class Op { Write, Delete, Read };

std::string Id3v2Title(const std::string& title) {
    return Tag(3, Frame23("TIT2", Text(title)));
}

std::string StartBytes(Start start) {
    const std::string audio = AudioBytes(kAudioSize);
    return (start == Start::Ape ? "" : Id3v2Title("Old")) + audio +
           (start == Start::Id3v2 ? "" : ApeTag({{"Title", "Old"}}).Bytes());
}

// Where the audio starts: behind an ID3v2 tag at the front, if any.
size_t AudioStart(const std::string& bytes) { return TagSize(bytes); }

struct Outcome {
    bool result = false;
    std::string file, tags, log;
};

Outcome RunOn(const std::string& start, Op op, const faults::Plan* plan) {
    TempDir dir;
    LogCapture log(dir);
    const std::string path = dir.File("song.tta");
    WriteFile(path, start);
    Outcome outcome;
    {
        std::optional<faults::Scope> scope;
        if (plan) scope.emplace(*plan, path);
        IDTags tags;
        clString version;
        switch (op) {
            case Op::Write:
                outcome.result = WriteStdTags(S(path), Tags({{"Title", "New"}, {"Comment", std::string(30000, 'c')}}),
                                              1, log.Target());
                break;
            case Op::Delete: outcome.result = DeleteStdTags(S(path), nullptr, log.Target()); break;
            case Op::Read:
                outcome.result = ReadStdTags(S(path), tags, version, log.Target());
                outcome.tags = Describe(tags);
                break;
        }
        if (plan) { EXPECT_GT(faults::Injected(), 0) << "the plan never struck"; }
    }
    outcome.file = ReadFile(path);
    outcome.log = log.Text();
    return outcome;
}

Outcome RunOp(Start start, Op op, const faults::Plan* plan) { return RunOn(StartBytes(start), op, plan); }

// What a fault must lead to.
enum class Expect {
    Same,        // success, to the bytes of the undisturbed run
    Restored,    // failure, the file byte for byte as it was
    Reported,    // failure reported; an I/O error in the middle of an in-place move may leave the audio damaged
};

struct Row {
    const char* name;
    Start start;
    Op op;
    faults::Plan plan;
    Expect expect;
    const char* logText;   // on a failure: what the error log says
};

TEST(FileSeamFaults, EachFaultGivesItsResultAndKeepsTheFile) {
    using P = faults::Plan;
    const P interrupts{.target = {}, .interrupt = true};
    // Behind where the old end lands once the ID3v2 tag has grown: only a write of the APE tag reaches it.
    const std::string both = StartBytes(Start::Both), written = RunOp(Start::Both, Op::Write, nullptr).file;
    const auto pastOldEnd = static_cast<int64_t>(both.size() + AudioStart(written) - AudioStart(both) + 100);
    const Row rows[] = {
        {"ID3v2 and APE write, 7-byte pieces", Start::Both, Op::Write, P{.target = {}, .maxChunk = 7}, Expect::Same, ""},
        {"ID3v2 and APE write, EINTR", Start::Both, Op::Write, interrupts, Expect::Same, ""},
        {"APE delete, 3-byte pieces", Start::Ape, Op::Delete, P{.target = {}, .maxChunk = 3}, Expect::Same, ""},
        {"ID3v2 and APE read, EINTR", Start::Both, Op::Read, interrupts, Expect::Same, ""},
        {"ID3v2 delete, EINTR", Start::Id3v2, Op::Delete, interrupts, Expect::Same, ""},
        {"APE write, disk full at once", Start::Ape, Op::Write, P{.target = {}, .writeFailAfter = 0}, Expect::Restored,
         "Could not write APE tag"},
        {"APE write, disk full half-way", Start::Ape, Op::Write, P{.target = {}, .writeFailAfter = 15000}, Expect::Restored,
         "Could not write APE tag"},
        {"ID3v2 write, disk full at once", Start::Id3v2, Op::Write, P{.target = {}, .writeFailAfter = 0}, Expect::Restored,
         "Could not write ID3v2 tag"},
        {"ID3v2 write, disk full while reserving room", Start::Id3v2, Op::Write, P{.target = {}, .writeFailAfter = 10000},
         Expect::Restored, "Could not write ID3v2 tag"},
        {"ID3v2 write, write fails while moving the audio", Start::Id3v2, Op::Write, P{.target = {}, .writeFailAfter = 50000},
         Expect::Reported, "Could not write ID3v2 tag"},
        {"ID3v2 delete, write fails while moving the audio", Start::Id3v2, Op::Delete, P{.target = {}, .writeFailAfter = 30000},
         Expect::Reported, "Could not delete ID3v2 tag"},
        {"APE write, write fails once over the old tag", Start::Ape, Op::Write, P{.target = {}, .writeFailsAt = kAudioSize + 20, .once = true},
         Expect::Restored, "restored as it was"},
        {"ID3v2 and APE write, write fails once in the new APE tag", Start::Both, Op::Write,
         P{.target = {}, .writeFailsAt = pastOldEnd, .once = true}, Expect::Restored, "Could not write ID3v2 tag"},
        {"APE read, read fails half-way", Start::Ape, Op::Read, P{.target = {}, .readFailAfter = 16}, Expect::Restored, ""},
        {"ID3v2 read, read fails half-way", Start::Id3v2, Op::Read, P{.target = {}, .readFailAfter = 12}, Expect::Restored, ""},
        {"APE write, read fails half-way", Start::Ape, Op::Write, P{.target = {}, .readFailAfter = 40}, Expect::Restored, ""},
        {"ID3v2 write, read fails half-way", Start::Id3v2, Op::Write, P{.target = {}, .readFailAfter = 12}, Expect::Restored, ""},
        {"APE read, file shrinks", Start::Ape, Op::Read, P{.target = {}, .shrinkAfterReads = 1, .shrinkTo = 1000}, Expect::Reported, ""},
        {"ID3v2 read, file shrinks", Start::Id3v2, Op::Read, P{.target = {}, .shrinkAfterReads = 1, .shrinkTo = 8}, Expect::Reported, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome clean = RunOp(row.start, row.op, nullptr);
        ASSERT_TRUE(clean.result) << clean.log;
        const Outcome faulted = RunOp(row.start, row.op, &row.plan);
        if (row.expect == Expect::Same) {
            EXPECT_TRUE(faulted.result) << faulted.log;
            EXPECT_TRUE(faulted.file == clean.file) << "the file differs from the undisturbed run's";
            EXPECT_EQ(faulted.tags, clean.tags);
            continue;
        }
        EXPECT_FALSE(faulted.result) << faulted.tags;
        EXPECT_NE(faulted.log.find(row.logText), std::string::npos) << faulted.log;
        if (row.expect == Expect::Restored) { EXPECT_TRUE(faulted.file == StartBytes(row.start)) << "the file changed"; }
    }
}

// Where step `step` of the tail move reads its block: the move runs from the
// end backwards when the tail grows, from its start forwards when it shrinks.
int64_t StepSource(int64_t tailStart, int64_t size, int64_t delta, int64_t step) {
    constexpr int64_t kBlock = 65536;
    if (delta > 0) return std::max(tailStart, size - (step + 1) * kBlock);
    return tailStart + step * kBlock;
}

// A tag whose size changes moves the audio behind it in 64 KiB steps. A read
// or a write that fails once, at any step and part-way through its block,
// leaves the file byte for byte as it was; one that keeps failing is
// reported, and the log says "restored" only of a file that is.
TEST(FileSeamFaults, AFailedTailMoveLeavesTheFileAsItWas) {
    const std::string audio = AudioBytes(5 * 65536);
    const struct {
        const char* name;
        std::string start;
        Op op;
        const char* words;
    } moves[] = {
        {"growing write", Id3v2Title("Old") + audio, Op::Write, "Could not write ID3v2 tag"},
        {"shrinking write", Id3v2Title(std::string(100000, 'o')) + audio, Op::Write, "Could not write ID3v2 tag"},
        {"delete", Id3v2Title("Old") + audio, Op::Delete, "Could not delete ID3v2 tag"},
    };
    constexpr char kRestored[] = "restored as it was";
    constexpr char kDamaged[] = "the file is damaged";
    const auto expectRestored = [&](const Outcome& outcome, const std::string& start) {
        EXPECT_FALSE(outcome.result);
        EXPECT_NE(outcome.log.find(kRestored), std::string::npos) << outcome.log;
        EXPECT_TRUE(outcome.file == start) << "the file differs from what it was";
    };
    for (const auto& move : moves) {
        SCOPED_TRACE(move.name);
        const Outcome clean = RunOn(move.start, move.op, nullptr);
        ASSERT_TRUE(clean.result) << clean.log;
        const auto size = static_cast<int64_t>(move.start.size());
        const auto tailStart = static_cast<int64_t>(AudioStart(move.start));
        const int64_t delta = static_cast<int64_t>(AudioStart(clean.file)) - tailStart;
        ASSERT_NE(delta, 0);
        for (int64_t step = 0; StepSource(tailStart, size, delta, step) < size && step < 6; ++step) {
            // Past the first 16 KiB, which the readers look at before the move.
            const int64_t source = StepSource(tailStart, size, delta, step) + 20000;
            for (const bool reading : {true, false}) {
                SCOPED_TRACE(testing::Message() << "step " << step << (reading ? " read" : " write"));
                const int64_t at = reading ? source : source + delta;
                faults::Plan once{.target = {}, .once = true};
                (reading ? once.readFailsAt : once.writeFailsAt) = at;
                const Outcome transient = RunOn(move.start, move.op, &once);
                EXPECT_NE(transient.log.find(move.words), std::string::npos) << transient.log;
                expectRestored(transient, move.start);

                faults::Plan always = once;
                always.once = false;
                const Outcome persistent = RunOn(move.start, move.op, &always);
                EXPECT_FALSE(persistent.result);
                EXPECT_NE(persistent.log.find(move.words), std::string::npos) << persistent.log;
                const bool restored = persistent.log.find(kRestored) != std::string::npos;
                EXPECT_TRUE(restored || persistent.log.find(kDamaged) != std::string::npos) << persistent.log;
                if (restored) { EXPECT_TRUE(persistent.file == move.start) << "restored, yet the file differs"; }
            }
        }
        if (move.op != Op::Write) continue;
        // The tail has moved and the new tag's write fails: the tail and the old tag go back.
        const faults::Plan tagWrite{.target = {}, .writeFailsAt = 50, .once = true};
        expectRestored(RunOn(move.start, move.op, &tagWrite), move.start);
    }
}

}  // namespace
