// The Matroska retag flows with faults at the file seam: short reads and writes
// and EINTR change nothing; a failed read, a full disk or a shrinking file end
// in the logged error, every Cluster's bytes at their offsets, audio unchanged.

#include <gtest/gtest.h>

#include <optional>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "faultio.h"
#include "tests/qel-matroska/ebmlwalk.h"
#include "tests/tags/tagfixture.h"

using namespace tagtest;

namespace {

constexpr char kCoverKey[] = "_albumart_1_Front Album Cover";
constexpr char kWriteError[] = "Couldn't update Matroska tags: ";

enum class Op { Title, AddCover, RemoveCover, DeleteAll };
const char* const kOpNames[] = {"title", "cover added", "cover removed", "delete all"};

// The FileUID goes out in the fewest bytes, so one time in 128 or so it is
// shorter and every element after it moves. Runs that compare whole files
// are repeated until their FileUID takes all 8 bytes.
bool HasShortFileUid(const std::string& bytes) {
    static const std::string kFileUid("\x46\xAE", 2);
    const size_t at = bytes.find(kFileUid);
    return at != std::string::npos && at + 2 < bytes.size() && bytes[at + 2] != '\x88';
}

IDTags CoverTags(const std::string& cover) {
    IDTags tags;
    tags.AddBinary(S(kCoverKey), cover.data(), static_cast<uint32_t>(cover.size()));
    return tags;
}

std::string Audio(const std::string& file) { return it::FfmpegOutput({"-i", file, "-f", "s16le", "-"}); }

// One file made by ffmpeg, and the same with a cover attached: the starting
// points of the four flows. Made once, on first use.
struct Inputs {
    TempDir dir;
    std::string cover, plain, covered, audio;
    Inputs() {
        const std::string plainPath = dir.File("plain.mka"), coverPath = dir.File("cover.png");
        it::Ffmpeg({"-f", "lavfi", "-i", "sine=frequency=440:duration=2", "-c:a", "flac", "-metadata", "title=Old",
                    plainPath});
        it::Ffmpeg({"-f", "lavfi", "-i", "color=c=red:s=64x48", "-frames:v", "1", coverPath});
        cover = ReadFile(coverPath);
        plain = ReadFile(plainPath);
        audio = Audio(plainPath);
        const std::string coveredPath = dir.File("covered.mka");
        WriteFile(coveredPath, plain);
        LogCapture log(dir);
        if (!MatroskaTags::Write(S(coveredPath), CoverTags(cover), log.Target())) ADD_FAILURE() << log.Text();
        covered = ReadFile(coveredPath);
    }
};

const Inputs& In() {
    static const Inputs inputs;
    return inputs;
}

const std::string& StartOf(Op op) { return op == Op::Title || op == Op::AddCover ? In().plain : In().covered; }

struct Outcome {
    bool result = false;
    std::string file, log;
    int64_t read = 0, written = 0, injected = 0;
};

// Runs `op` on a fresh copy; with a plan, under it (an empty plan measures).
Outcome RunOp(Op op, const std::optional<faults::Plan>& plan) {
    TempDir dir;
    LogCapture log(dir);
    const std::string path = dir.File("song.mka");
    WriteFile(path, StartOf(op));
    Outcome outcome;
    {
        std::optional<faults::Scope> scope;
        if (plan) scope.emplace(*plan, path);
        const std::u16string cover = std::u16string(u"_albumart_1_Front Album Cover") + u'\0';
        const IDTags title = Tags({{"Title", "New " + std::string(300, 't')}});
        if (op == Op::Title) outcome.result = MatroskaTags::Write(S(path), title, log.Target());
        if (op == Op::AddCover) outcome.result = MatroskaTags::Write(S(path), CoverTags(In().cover), log.Target());
        if (op == Op::RemoveCover) outcome.result = MatroskaTags::Delete(S(path), cover.c_str(), log.Target());
        if (op == Op::DeleteAll) outcome.result = MatroskaTags::Delete(S(path), nullptr, log.Target());
        outcome.read = faults::BytesRead();
        outcome.written = faults::BytesWritten();
        outcome.injected = faults::Injected();
    }
    outcome.file = ReadFile(path);
    outcome.log = log.Text();
    return outcome;
}

Outcome RunWithFullFileUid(Op op, const std::optional<faults::Plan>& plan) {
    Outcome outcome = RunOp(op, plan);
    for (int tries = 1; tries < 8 && HasShortFileUid(outcome.file); ++tries) outcome = RunOp(op, plan);
    return outcome;
}

// A new attachment's FileUID is random: zeroed, two runs compare.
std::string WithoutFileUids(std::string bytes) {
    static const std::string kFileUid("\x46\xAE\x88", 3);
    for (size_t at = bytes.find(kFileUid); at != std::string::npos; at = bytes.find(kFileUid, at + 1)) {
        if (at + 11 <= bytes.size()) bytes.replace(at + 3, 8, 8, '\0');
    }
    return bytes;
}

enum class Expect {
    Same,      // success, to the bytes of the undisturbed run
    Refused,   // the logged error; Clusters and audio as they were
};

struct Fault {
    const char* name;
    faults::Plan plan;
    Expect expect;
};

TEST(MatroskaFaults, EachFaultGivesItsResultAndKeepsTheClusters) {
    for (const Op op : {Op::Title, Op::AddCover, Op::RemoveCover, Op::DeleteAll}) {
        SCOPED_TRACE(kOpNames[static_cast<int>(op)]);
        const Outcome clean = RunWithFullFileUid(op, faults::Plan{});
        ASSERT_TRUE(clean.result) << clean.log;
        ASSERT_GT(clean.written, 0) << "the flow changed nothing";
        ASSERT_NE(clean.file, StartOf(op));
        const std::string& start = StartOf(op);

        faults::Plan pieces, interrupted, readFails, diskFull, diskFullAtOnce, shrinks;
        pieces.maxChunk = 5;
        interrupted.interrupt = true;
        readFails.readFailAfter = clean.read / 2;
        diskFull.writeFailAfter = clean.written / 2;
        diskFullAtOnce.writeFailAfter = 0;
        shrinks.shrinkAfterReads = 1;
        shrinks.shrinkTo = static_cast<int64_t>(start.size() / 2);
        const Fault rows[] = {
            {"5-byte pieces", pieces, Expect::Same},
            {"EINTR", interrupted, Expect::Same},
            {"read fails half-way", readFails, Expect::Refused},
            {"disk full half-way", diskFull, Expect::Refused},
            {"disk full at once", diskFullAtOnce, Expect::Refused},
            {"file shrinks while read", shrinks, Expect::Refused},
        };
        for (const Fault& row : rows) {
            SCOPED_TRACE(row.name);
            const Outcome faulted =
                row.expect == Expect::Same ? RunWithFullFileUid(op, row.plan) : RunOp(op, row.plan);
            EXPECT_GT(faulted.injected, 0) << "the plan never struck";
            if (row.expect == Expect::Same) {
                EXPECT_TRUE(faulted.result) << faulted.log;
                EXPECT_TRUE(WithoutFileUids(faulted.file) == WithoutFileUids(clean.file))
                    << "the file differs from the undisturbed run's";
                continue;
            }
            EXPECT_FALSE(faulted.result);
            EXPECT_NE(faulted.log.find(kWriteError), std::string::npos) << faulted.log;
            // Nothing is written before every change is planned and the first write takes.
            const bool untouched = row.plan.readFailAfter >= 0 || row.plan.shrinkAfterReads >= 0 || row.plan.writeFailAfter == 0;
            EXPECT_TRUE(!untouched || start.compare(0, faulted.file.size(), faulted.file) == 0) << "a failed job wrote";
            // The shrink took the file's second half itself: what is left must be as it was.
            const std::string before =
                row.plan.shrinkAfterReads >= 0 ? start.substr(0, static_cast<size_t>(row.plan.shrinkTo)) : start;
            const auto clusters = ebmltest::Clusters(before);
            if (row.plan.shrinkAfterReads < 0) { ASSERT_FALSE(clusters.empty()); }
            for (const auto& [offset, bytes] : clusters) {
                EXPECT_TRUE(faulted.file.compare(offset, bytes.size(), bytes) == 0) << "Cluster at " << offset;
            }
            if (row.plan.shrinkAfterReads >= 0) continue;
            TempDir copyDir;
            WriteFile(copyDir.File("faulted.mka"), faulted.file);
            EXPECT_TRUE(Audio(copyDir.File("faulted.mka")) == In().audio) << "the decoded audio changed";
        }
    }
}

}  // namespace
