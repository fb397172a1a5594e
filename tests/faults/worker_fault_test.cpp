// The plug-in's Linux-only meetings with its worker and host: a flooding
// error stream, pipe reads cut short or interrupted (faultio.cpp), a host that
// reaps its children, a relative load path, a FIFO as input.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <gtest/gtest.h>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include "faultio.h"
#include "tests/integration/plugindriver.h"
#include "tests/transport/pattern.h"
#include "tests/transport/strangerchild.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Peak resident memory since the last reset, in MiB.
long PeakRssMiB() {
    const std::string status = it::ReadFile("/proc/self/status");
    const size_t at = status.find("VmHWM:");
    return at == std::string::npos ? -1 : std::atol(status.c_str() + at + 6) / 1024;
}

// Every byte, in order, in bounded memory, and never a hang.
TEST(WorkerFaults, FloodsAndCutPipeReadsChangeNoByte) {
    it::TempDir dir;
    it::PluginLibrary plugin(it::MakePluginTree(dir.File("tree"), FD_FAKE_WORKER));
    const std::string progress = "frames 441000\nprogress 20971520\n", orders = dir.File("orders");
    // The real worker's progress text takes more than a day. Pipe reads give at
    // most `maxChunk` bytes; with `interrupt`, every other one fails with EINTR first.
    const struct { const char* name; std::string orders; size_t bytes, maxChunk = 0; bool interrupt = false; } rows[] = {
        // 2 million lines of 123 bytes before its dump and first audio byte.
        {"floods the error stream first", "floodlines 246000000\n", 176400},
        {"endless progress text", progress, 1764000},
        {"progress text without line ends", progress + "noreturns 1\n", 1764000},
        {"7-byte pipe reads", "frames 20000\nprogress 100000\n", 80000, 7},
        {"interrupted pipe reads", "frames 20000\nprogress 100000\n", 80000, 0, true},
    };
    // An address sanitizer keeps freed memory in quarantine: resident memory tells nothing there.
    const bool sanitized = ::dlsym(RTLD_DEFAULT, "__asan_init") != nullptr;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        it::WriteFile(orders, row.orders);
        it::QuitFifo quit(dir.File(row.name));
        it::WriteFile("/proc/self/clear_refs", "5");   // resets the peak
        const long peakBefore = PeakRssMiB();
        std::optional<faults::Scope> scope;
        if (row.maxChunk || row.interrupt) scope.emplace(faults::Plan{"pipe:", row.maxChunk, row.interrupt});
        it::TestDecoder decoder(plugin, quit.Path());
        it::Later watchdog(30000ms, [&] { quit.Set(); });   // a hang fails rather than hangs
        ASSERT_TRUE(decoder.Open(orders, 0)) << decoder.ErrorLog();
        std::string samples;
        EXPECT_TRUE(decoder.ReadToEnd(samples));
        EXPECT_TRUE(!scope || faults::Injected() > 0) << "the pipe reads went past the fault layer";
        EXPECT_EQ(decoder.ErrorLog(), "");
        EXPECT_EQ(samples.size(), row.bytes);
        EXPECT_EQ(PatternMismatches(samples), 0u);
        EXPECT_FALSE(quit.IsSet()) << "ended by the watchdog";
        EXPECT_TRUE(sanitized || PeakRssMiB() - peakBefore < 96) << "the error text is held up to 64 MiB";
    }
    EXPECT_EQ(it::ChildrenAfter(5000), 0) << "a worker was left behind";
}

// A host that reaps all of its children takes the ended worker's pid, and a
// stranger gets it: the plug-in must neither signal nor reap that one, nor
// wait out the grace time for a worker that is gone.
TEST(WorkerFaults, AStrangerWithTheWorkersPidSurvivesDestroyCloseAndSeek) {
    it::TempDir dir;
    const std::string path = dir.File("tiny.wav");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=0.2", "-ac", "2", path});
    for (const std::string action : {"Destroy", "Close", "SetPosition"}) {
        SCOPED_TRACE(action);
        it::TestDecoder decoder;
        ASSERT_TRUE(decoder.Open(path, 0)) << decoder.ErrorLog();
        // The whole output fits into the pipe: the worker ends, and the host reaps it.
        pid_t pid = -1;
        it::WaitUntil([&pid] { return (pid = ::waitpid(-1, nullptr, WNOHANG)) > 0; }, 10000);
        ASSERT_GT(pid, 0);
        const pid_t stranger = StartChildWithPid(pid);
        if (stranger < 0) GTEST_SKIP() << "the system gives no chosen pid (clone3 set_tid)";
        ASSERT_EQ(stranger, pid);
        const auto start = Clock::now();   // a worker that is gone isn't given the 2 s grace time
        if (action == "Destroy") decoder.Destroy();
        EXPECT_TRUE(action != "Close" || decoder.Close());
        EXPECT_TRUE(action != "SetPosition" || decoder.SetPosition(4410)) << decoder.ErrorLog();
        EXPECT_LT(Clock::now() - start, 1500ms);
        EXPECT_TRUE(ChildRuns(stranger)) << "signalled or reaped by the plug-in";
        EndChild(stranger);
    }
    EXPECT_EQ(it::ChildrenAfter(3000), 0);
}

// The plug-in finds its worker beside itself, however it was named when
// loaded, after the host has changed its working directory.
TEST(WorkerFaults, RelativeLoadThenChdirStillFindsTheWorker) {
    it::TempDir dir;
    const std::string path = dir.File("orders");
    it::WriteFile(path, "frames 3000\n");
    const fs::path before = fs::current_path();
    // `from`: the working directory at load, under the temporary folder; `loaded`: the name handed to the loader.
    const struct { const char *tree, *from, *loaded; } cases[] = {
        {"a", ".", "a/./plugins/ffmpeg_decoder.so"},
        {"b", "b", "./plugins/./ffmpeg_decoder.so"},
        {"c", "c/plugins", "../plugins/ffmpeg_decoder.so"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.loaded);
        it::MakePluginTree(dir.File(c.tree), FD_FAKE_WORKER);
        fs::current_path(dir.File(c.from));
        it::PluginLibrary plugin(c.loaded);
        fs::current_path("/");
        std::string samples;
        it::TestDecoder decoder(plugin);
        EXPECT_TRUE(decoder.Open(path, 0) && decoder.ReadToEnd(samples) && samples.size() == 12000) << decoder.ErrorLog();
    }
    fs::current_path(before);
}

// A FIFO whose only writer left after bytes that are no audio fails at once:
// telling "can't open" from "can't decode" must not wait for a writer that
// never comes.
TEST(WorkerFaults, AFifoInputWhoseWriterLeftFailsAtOnce) {
    it::TempDir dir;
    const std::string input = dir.File("input.wav");
    ASSERT_EQ(::mkfifo(input.c_str(), 0600), 0);
    std::thread writer([&] {
        const int fd = ::open(input.c_str(), O_WRONLY | O_CLOEXEC);
        if (fd >= 0 && ::write(fd, "no audio here", 13) != 13) ADD_FAILURE() << "the write failed";
        ::close(fd);
    });
    it::QuitFifo quit(dir.File("quit"));
    it::TestDecoder decoder(it::Plugin(), quit.Path());
    const auto start = Clock::now();
    {
        it::Later hostGivesUp(3000ms, [&] { quit.Set(); });
        // A check that hangs can't be reached by the quit; this frees it, so the test fails instead of hanging.
        it::Later release(8000ms, [&] { ::close(::open(input.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)); });
        EXPECT_FALSE(decoder.Open(input, 0));
    }
    EXPECT_LT(Clock::now() - start, 3000ms) << "the failure must come before the host's quit";
    writer.join();
    EXPECT_EQ(decoder.ErrorLog(), "File could not be decoded  [clDecoder_ffmpeg::SetPosition]\r\n");
}

}  // namespace
