// The Matroska retag flows with faults at the file seam: short calls and EINTR
// change nothing; a failed read, a full disk or a shrinking file leave the file
// as it was; a device failing every write from half-way keeps the Clusters.

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "faultio.h"
#include "tests/qel-matroska/ebmlwalk.h"
#include "tests/tags/tagfixture.h"

using namespace tagtest;

namespace {

enum class Op { Title, AddCover, RemoveCover, DeleteAll };

IDTags CoverTags(const std::string& cover) {
    IDTags tags;
    tags.AddBinary(S("_albumart_1_Front Album Cover"), cover.data(), static_cast<uint32_t>(cover.size()));
    return tags;
}

// A file made by ffmpeg, and the same with a cover attached: the starting
// points of the four flows. Made once, on first use.
struct Inputs {
    TempDir dir;
    std::string cover, plain, covered;
    Inputs() {
        const std::string plainPath = dir.File("plain.mka"), coverPath = dir.File("cover.png");
        it::Ffmpeg({"-f", "lavfi", "-i", "sine=frequency=440:duration=2", "-c:a", "flac", "-metadata", "title=Old", plainPath});
        it::Ffmpeg({"-f", "lavfi", "-i", "color=c=red:s=64x48", "-frames:v", "1", coverPath});
        cover = ReadFile(coverPath);
        plain = ReadFile(plainPath);
        LogCapture log(dir);
        if (!MatroskaTags::Write(S(plainPath), CoverTags(cover), log.Target())) ADD_FAILURE() << log.Text();
        covered = ReadFile(plainPath);
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
// Runs `op` on a fresh copy under `plan`.
Outcome RunOp(Op op, const faults::Plan& plan) {
    TempDir dir;
    LogCapture log(dir);
    const std::string path = dir.File("song.mka");
    WriteFile(path, StartOf(op));
    Outcome outcome;
    {
        const faults::Scope scope(plan, path);
        const std::u16string cover = std::u16string(u"_albumart_1_Front Album Cover") + u'\0';
        if (op == Op::Title) outcome.result = MatroskaTags::Write(S(path), Tags({{"Title", std::string(300, 't')}}), log.Target());
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
// What a fault must lead to: success to the bytes of the undisturbed run; the
// logged error with the file byte for byte as it was (as the shrink left it);
// the logged error with the Clusters (the audio) as they were.
enum class Expect { Same, Untouched, Cut };

TEST(MatroskaFaults, EachFaultGivesItsResultAndKeepsTheFile) {
    for (const Op op : {Op::Title, Op::AddCover, Op::RemoveCover, Op::DeleteAll}) {
        SCOPED_TRACE(static_cast<int>(op));
        const std::string& start = StartOf(op);
        const Outcome clean = RunOp(op, faults::Plan{});
        ASSERT_TRUE(clean.result) << clean.log;
        ASSERT_NE(clean.file, start) << "the flow changed nothing";
        ASSERT_FALSE(ebmltest::Clusters(start).empty());
        using P = faults::Plan;
        const auto half = static_cast<int64_t>(start.size() / 2), size = static_cast<int64_t>(start.size());
        std::vector<std::tuple<const char*, P, Expect>> rows = {
            {"read fails half-way", P{.target = {}, .readFailAfter = clean.read / 2}, Expect::Untouched},
            {"disk full at once", P{.target = {}, .writeFailAfter = 0}, Expect::Untouched},
            {"file shrinks while read", P{.target = {}, .shrinkAfterReads = 1, .shrinkTo = half}, Expect::Untouched},
            {"write error half-way", P{.target = {}, .writeFailAfter = clean.written / 2}, Expect::Cut},
        };
        // A cover added gets a random FileUID, so no two runs compare; its
        // calls go through the same stream as the other flows' do.
        if (op != Op::AddCover) {
            rows.emplace_back("5-byte pieces", P{.target = {}, .maxChunk = 5}, Expect::Same);
            rows.emplace_back("EINTR", P{.target = {}, .interrupt = true}, Expect::Same);
        }
        // A disk that fills where the file grows still takes the old bytes
        // back; a device failing every write ("half-way") can't.
        if (clean.file.size() > start.size()) rows.emplace_back("disk full where the file grows", P{.target = {}, .writeFailsAt = size}, Expect::Untouched);
        for (const auto& [name, plan, expect] : rows) {
            SCOPED_TRACE(name);
            const Outcome faulted = RunOp(op, plan);
            EXPECT_GT(faulted.injected, 0) << "the plan never struck";
            EXPECT_EQ(faulted.result, expect == Expect::Same) << faulted.log;
            EXPECT_TRUE(expect != Expect::Same || faulted.file == clean.file) << "differs from the undisturbed run";
            EXPECT_TRUE(expect == Expect::Same || faulted.log.find("Couldn't update Matroska tags: ") != std::string::npos) << faulted.log;
            const size_t kept = plan.shrinkAfterReads >= 0 ? static_cast<size_t>(plan.shrinkTo) : start.size();
            EXPECT_TRUE(expect != Expect::Untouched || faulted.file == start.substr(0, kept)) << "a failed job changed the file";
            for (const auto& [offset, bytes] : ebmltest::Clusters(start))
                EXPECT_TRUE(expect != Expect::Cut || faulted.file.compare(offset, bytes.size(), bytes) == 0) << "Cluster at " << offset;
        }
    }
}

}  // namespace
