// The plug-in against a worker's error stream that floods, and against pipe
// reads that the system cuts short or interrupts (read taken over by
// faultio.cpp): every byte, in order, in bounded memory. Then a file cut
// while the worker reads it. (Misbehaviour both platforms meet:
// tests/integration/worker_table_test.cpp.)

#include <dlfcn.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "faultio.h"
#include "tests/integration/plugindriver.h"
#include "tests/transport/pattern.h"

namespace {

using namespace std::chrono_literals;

// Peak resident memory since the last reset, in MiB.
long PeakRssMiB() {
    const std::string status = it::ReadFile("/proc/self/status");
    const size_t at = status.find("VmHWM:");
    return at == std::string::npos ? -1 : std::atol(status.c_str() + at + 6) / 1024;
}

TEST(WorkerFaults, FloodsAndCutPipeReadsChangeNoByte) {
    it::TempDir dir;
    it::PluginLibrary plugin(it::MakePluginTree(dir.File("tree"), FD_FAKE_WORKER));
    const std::string progress = "frames 441000\nprogress 20971520\n";   // the real worker's take more than a day
    // An address sanitizer keeps freed memory in quarantine: resident memory tells nothing there.
    const bool sanitized = ::dlsym(RTLD_DEFAULT, "__asan_init") != nullptr;
    const struct {
        const char* name;
        std::string orders;
        size_t bytes;
        size_t maxChunk = 0;      // pipe reads give at most this many bytes
        bool interrupt = false;   // every other pipe read fails with EINTR first
    } rows[] = {
        // 2 million lines of 123 bytes before its dump and first audio byte.
        {"floods the error stream first", "floodlines 246000000\n", 176400},
        {"endless progress text", progress, 1764000},
        {"progress text without line ends", progress + "noreturns 1\n", 1764000},
        {"7-byte pipe reads", "frames 20000\nprogress 100000\n", 80000, 7},
        {"interrupted pipe reads", "frames 20000\nprogress 100000\n", 80000, 0, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string orders = dir.File("orders");
        it::WriteFile(orders, row.orders);
        it::QuitFifo quit(dir.File("quit"));
        it::WriteFile("/proc/self/clear_refs", "5");   // resets the peak
        const long rssBefore = PeakRssMiB();
        std::string samples;
        {
            faults::Plan plan;
            plan.target = "pipe:";
            plan.maxChunk = row.maxChunk;
            plan.interrupt = row.interrupt;
            std::optional<faults::Scope> scope;
            if (row.maxChunk || row.interrupt) scope.emplace(plan);
            it::TestDecoder decoder(plugin);
            ASSERT_TRUE(decoder.SetQuitEvent(quit.Path()));
            it::Later watchdog(30000ms, [&] { quit.Set(); });   // a hang fails rather than hangs
            ASSERT_TRUE(decoder.Open(orders, 0)) << decoder.ErrorLog();
            EXPECT_TRUE(decoder.ReadToEnd(samples));
            EXPECT_EQ(decoder.ErrorLog(), "");
            EXPECT_TRUE(!scope || faults::Injected() > 0) << "the pipe reads went past the fault layer";
        }
        if (!sanitized) { EXPECT_LT(PeakRssMiB() - rssBefore, 96) << "the error text is held up to 64 MiB"; }
        EXPECT_EQ(samples.size(), row.bytes);
        EXPECT_EQ(PatternMismatches(samples), 0u);
        EXPECT_FALSE(quit.IsSet()) << "ended by the watchdog";
        ::unlink(quit.Path().c_str());
    }
    EXPECT_EQ(it::ChildrenAfter(5000), 0) << "a worker was left behind";
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
