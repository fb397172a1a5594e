// The plug-in against a misbehaving worker and a file cut while the worker
// reads it: a logged failure, the bytes that came, or a quit; never a hang.

#include <dlfcn.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>

#include "faultio.h"
#include "tests/integration/plugindriver.h"
#include "tests/transport/pattern.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A worker that blocks for ever, in Open or in mid-stream, meets the quit:
// tests/integration/quit_test.cpp.
enum class Expect {
    OpenFails,   // Open gives 0 and logs "File could not be decoded"
    Streams,     // every byte comes, exact, the last block with endOfStream
};

struct Row {
    const char* name;
    std::string orders;
    Expect expect;
    size_t bytes;   // the audio bytes that come
};

// Peak resident memory since the last ResetPeakRss, in MiB.
long PeakRssMiB() {
    const std::string status = it::ReadFile("/proc/self/status");
    const size_t at = status.find("VmHWM:");
    return at == std::string::npos ? -1 : std::atol(status.c_str() + at + 6) / 1024;
}

void ResetPeakRss() { it::WriteFile("/proc/self/clear_refs", "5"); }

TEST(WorkerFaults, EachMisbehaviourGivesItsResult) {
    it::TempDir dir;
    it::PluginLibrary plugin(it::MakePluginTree(dir.File("tree"), FD_FAKE_WORKER));
    const std::string progress = "frames 441000\nprogress 20971520\n";   // the real worker's take more than a day
    // An address sanitizer keeps freed memory in quarantine: resident memory tells nothing there.
    const bool sanitized = ::dlsym(RTLD_DEFAULT, "__asan_init") != nullptr;
    const Row rows[] = {
        {"writes nothing", "silent 1\n", Expect::OpenFails, 0},
        {"writes garbage", "garbage 1\n", Expect::OpenFails, 0},
        {"dies in mid-stream", "frames 44100\ndieafter 100000\n", Expect::Streams, 100000},
        {"a data chunk of whole blocks", "frames 8192\n", Expect::Streams, 32768},
        // 2 million lines of 123 bytes before its dump and first audio byte.
        {"floods the error stream first", "frames 44100\nfloodlines 246000000\n", Expect::Streams, 176400},
        {"endless progress text", progress, Expect::Streams, 1764000},
        {"progress text without line ends", progress + "noreturns 1\n", Expect::Streams, 1764000},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string orders = dir.File("orders");
        it::WriteFile(orders, row.orders);
        it::QuitFifo quit(dir.File("quit"));
        {
            it::TestDecoder decoder(plugin);
            ASSERT_TRUE(decoder.SetQuitEvent(quit.Path()));
            it::Later watchdog(30000ms, [&] { quit.Set(); });   // a hang fails rather than hangs
            ResetPeakRss();
            const long rssBefore = PeakRssMiB();
            const auto start = Clock::now();
            const bool opened = decoder.Open(orders, 0);
            std::string samples;
            std::vector<DecoderBlockInfo> blocks;
            const bool ended = opened && decoder.ReadToEnd(samples, &blocks);
            const auto took = Clock::now() - start;
            const std::string log = decoder.ErrorLog();
            const bool streams = row.expect == Expect::Streams;
            EXPECT_EQ(opened, streams) << log;
            EXPECT_EQ(ended, streams);
            // A host that waits for the flag would spin on empty blocks without it.
            if (ended) { EXPECT_EQ(blocks.back().endOfStream, 1); }
            EXPECT_EQ(log, streams ? "" : "File could not be decoded  [clDecoder_ffmpeg::SetPosition]\r\n");
            if (!sanitized) { EXPECT_LT(PeakRssMiB() - rssBefore, 96) << "the error text is held up to 64 MiB"; }
            EXPECT_EQ(samples.size(), row.bytes);
            EXPECT_EQ(PatternMismatches(samples), 0u);
            EXPECT_LT(took, 25s) << "a hang ended only by the watchdog";
            const auto closing = Clock::now();
            decoder.Close();
            EXPECT_LT(Clock::now() - closing, 1s) << "a worker that ended gets no grace time";
        }
        EXPECT_EQ(it::ChildrenAfter(5000), 0) << "a worker was left behind";
        ::unlink(quit.Path().c_str());
    }
}

// The worker's pipes giving a few bytes per read, or EINTR on every other
// call: the same bytes, in the same order.
TEST(WorkerFaults, ShortAndInterruptedPipeReadsChangeNoByte) {
    it::TempDir dir;
    it::PluginLibrary plugin(it::MakePluginTree(dir.File("tree"), FD_FAKE_WORKER));
    const std::string orders = dir.File("orders");
    it::WriteFile(orders, "frames 20000\nprogress 100000\n");
    for (const bool interrupt : {false, true}) {
        SCOPED_TRACE(interrupt ? "EINTR" : "7-byte reads");
        faults::Plan plan;
        plan.target = "pipe:";
        plan.maxChunk = interrupt ? 0 : 7;
        plan.interrupt = interrupt;
        std::string samples;
        bool ended = false;
        {
            const faults::Scope scope(plan);
            it::TestDecoder decoder(plugin);
            ASSERT_TRUE(decoder.Open(orders, 0)) << decoder.ErrorLog();
            ended = decoder.ReadToEnd(samples);
            EXPECT_GT(faults::Injected(), 0) << "the plug-in's pipe reads went past the fault layer";
        }
        EXPECT_TRUE(ended);
        EXPECT_EQ(samples.size(), 80000u);
        EXPECT_EQ(PatternMismatches(samples), 0u);
    }
}

// A file cut to a third while the worker reads it: the stream ends early,
// and what came is the start of the undisturbed decode.
TEST(WorkerFaults, AFileCutWhileTheWorkerReadsItEndsTheStream) {
    it::TempDir dir;
    const std::string path = dir.File("long.tta");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=frequency=440:duration=20", "-ac", "2", "-c:a", "tta", path});
    const std::string reference = it::ReferenceDecode(path).data;
    it::QuitFifo quit(dir.File("quit"));
    it::TestDecoder decoder;
    ASSERT_TRUE(decoder.SetQuitEvent(quit.Path()));
    it::Later watchdog(30000ms, [&] { quit.Set(); });
    ASSERT_TRUE(decoder.Open(path, 0)) << decoder.ErrorLog();
    std::string samples;
    DecoderBlockInfo first{};
    ASSERT_TRUE(decoder.DecodeBlock(first));
    samples.append(static_cast<const char*>(first.samples), first.bytes);
    ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(it::ReadFile(path).size() / 3)), 0);
    EXPECT_TRUE(decoder.ReadToEnd(samples)) << decoder.ErrorLog();
    EXPECT_LT(samples.size(), reference.size());
    EXPECT_GT(samples.size(), first.bytes);
    EXPECT_TRUE(reference.compare(0, samples.size(), samples) == 0) << "the bytes that came differ";
}

}  // namespace
