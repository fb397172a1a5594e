// The tag writes with faults at the file seam: short calls and EINTR change
// nothing; a failed read or a full disk leave the file as it was; a tail move
// that fails at any step puts the file back or says it is damaged.

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "faultio.h"
#include "tags/stdtags.h"
#include "tests/tags/tagbytes.h"
#include "tests/tags/tagfixture.h"

using namespace tagtest;

namespace {

using P = faults::Plan;
enum class Op { Write, Delete };
constexpr char kRestored[] = "restored as it was";

std::string Id3v2Title(const std::string& title) { return Tag(3, Frame23("TIT2", Text(title))); }

// Stand-in audio behind an ID3v2 tag, in front of an APE tag, or both.
const std::string kAudio = AudioBytes(80000);
const std::string kApe = kAudio + ApeTag({{"Title", "Old"}}).Bytes(), kId3v2 = Id3v2Title("Old") + kAudio,
                  kBoth = Id3v2Title("Old") + kApe;

struct Outcome {
    bool result = false;
    std::string file, log;
};
Outcome RunOn(const std::string& start, Op op, const P* plan) {
    TempDir dir;
    LogCapture log(dir);
    const std::string path = dir.File("song.tta");
    WriteFile(path, start);
    bool result = false;
    {
        std::optional<faults::Scope> scope;
        if (plan) scope.emplace(*plan, path);
        if (op == Op::Write) result = WriteStdTags(S(path), Tags({{"Title", "New"}, {"Comment", std::string(30000, 'c')}}), 1, log.Target());
        if (op == Op::Delete) result = DeleteStdTags(S(path), nullptr, log.Target());
        if (plan) { EXPECT_GT(faults::Injected(), 0) << "the plan never struck"; }
    }
    return {result, ReadFile(path), log.Text()};
}
P Chunks(size_t n) { return {.target = {}, .maxChunk = n}; }
P ReadFailsAfter(int64_t n) { return {.target = {}, .readFailAfter = n}; }
P WriteFailsAfter(int64_t n) { return {.target = {}, .writeFailAfter = n}; }
P WriteFailsOnceAt(int64_t at) { return {.target = {}, .writeFailsAt = at, .once = true}; }

}  // namespace

TEST(FileSeamFaults, EachFaultGivesItsResultAndKeepsTheFile) {
    const P eintr{.target = {}, .interrupt = true};
    // Behind where the old end lands once the ID3v2 tag has grown: only a write of the APE tag reaches it.
    const auto pastOldEnd = static_cast<int64_t>(kBoth.size() + TagSize(RunOn(kBoth, Op::Write, nullptr).file) - TagSize(kBoth) + 100);
    // logText: on a failure; nullptr: success to the undisturbed run's bytes. restored: the file byte for byte as it was.
    const struct { const char* name; const std::string& start; Op op; P plan; const char* logText; bool restored; } rows[] = {
        {"ID3v2 and APE write, 7-byte pieces", kBoth, Op::Write, Chunks(7), nullptr, false},
        {"ID3v2 and APE write, EINTR", kBoth, Op::Write, eintr, nullptr, false},
        {"APE delete, 3-byte pieces", kApe, Op::Delete, Chunks(3), nullptr, false},
        {"ID3v2 delete, EINTR", kId3v2, Op::Delete, eintr, nullptr, false},
        {"APE write, disk full at once", kApe, Op::Write, WriteFailsAfter(0), "Could not write APE tag", true},
        {"APE write, disk full half-way", kApe, Op::Write, WriteFailsAfter(15000), "Could not write APE tag", true},
        {"ID3v2 write, disk full at once", kId3v2, Op::Write, WriteFailsAfter(0), "Could not write ID3v2 tag", true},
        {"ID3v2 write, disk full while reserving room", kId3v2, Op::Write, WriteFailsAfter(10000), "Could not write ID3v2 tag", true},
        {"APE write, write fails once over the old tag", kApe, Op::Write, WriteFailsOnceAt(80020), kRestored, true},
        {"ID3v2 and APE write, write fails once in the new APE tag", kBoth, Op::Write, WriteFailsOnceAt(pastOldEnd), "Could not write ID3v2 tag", true},
        {"APE write, read fails half-way", kApe, Op::Write, ReadFailsAfter(40), "", true},
        {"ID3v2 write, read fails half-way", kId3v2, Op::Write, ReadFailsAfter(12), "", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome clean = RunOn(row.start, row.op, nullptr), faulted = RunOn(row.start, row.op, &row.plan);
        ASSERT_TRUE(clean.result) << clean.log;
        EXPECT_EQ(faulted.result, row.logText == nullptr) << faulted.log;
        EXPECT_NE(faulted.log.find(row.logText ? row.logText : ""), std::string::npos) << faulted.log;
        if (!row.logText) { EXPECT_TRUE(faulted.file == clean.file) << "differs from the undisturbed run"; }
        if (row.restored) { EXPECT_TRUE(faulted.file == row.start) << "the file changed"; }
    }
}

// A tag whose size changes moves the audio behind it in 64 KiB steps, from the
// end backwards when it grows, from its start forwards when it shrinks. A read
// or a write that fails once, at any step and part-way through its block,
// leaves the file byte for byte as it was; one that keeps failing is reported,
// and the log says "restored" only of a file that is.
TEST(FileSeamFaults, AFailedTailMoveLeavesTheFileAsItWas) {
    constexpr int64_t kBlock = 65536;
    const std::string audio = AudioBytes(5 * kBlock);
    const struct { const char* name; std::string start; Op op; const char* words; } moves[] = {
        {"growing write", Id3v2Title("Old") + audio, Op::Write, "Could not write ID3v2 tag"},
        {"shrinking write", Id3v2Title(std::string(100000, 'o')) + audio, Op::Write, "Could not write ID3v2 tag"},
        {"delete", Id3v2Title("Old") + audio, Op::Delete, "Could not delete ID3v2 tag"},
    };
    for (const auto& move : moves) {
        SCOPED_TRACE(move.name);
        const auto size = static_cast<int64_t>(move.start.size()), tailStart = static_cast<int64_t>(TagSize(move.start));
        const int64_t delta = static_cast<int64_t>(TagSize(RunOn(move.start, move.op, nullptr).file)) - tailStart;
        ASSERT_NE(delta, 0);
        for (int64_t step = 0; step < 6; ++step) {
            // Past the first 16 KiB of the block, which the readers look at before the move.
            const int64_t source = (delta > 0 ? std::max(tailStart, size - (step + 1) * kBlock) : tailStart + step * kBlock) + 20000;
            if (source >= size) break;
            for (const bool reading : {true, false}) {
                SCOPED_TRACE(testing::Message() << "step " << step << (reading ? " read" : " write"));
                P plan{.target = {}, .readFailsAt = reading ? source : -1, .writeFailsAt = reading ? -1 : source + delta, .once = true};
                const Outcome transient = RunOn(move.start, move.op, &plan);
                EXPECT_TRUE(!transient.result && transient.log.find(move.words) != std::string::npos &&
                            transient.log.find(kRestored) != std::string::npos && transient.file == move.start) << transient.log;
                plan.once = false;
                const Outcome persistent = RunOn(move.start, move.op, &plan);
                const bool restored = persistent.log.find(kRestored) != std::string::npos;
                EXPECT_TRUE(!persistent.result && persistent.log.find(move.words) != std::string::npos &&
                            (restored ? persistent.file == move.start : persistent.log.find("the file is damaged") != std::string::npos))
                    << persistent.log;
            }
        }
        if (move.op != Op::Write) continue;
        // The tail has moved and the new tag's write fails: the tail and the old tag go back.
        const P tagWrite = WriteFailsOnceAt(50);
        const Outcome failed = RunOn(move.start, move.op, &tagWrite);
        EXPECT_TRUE(!failed.result && failed.log.find(kRestored) != std::string::npos && failed.file == move.start) << failed.log;
    }
}
