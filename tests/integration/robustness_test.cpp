// The plug-in against what Linux hosts do to it: a host that reaps its
// children, a relative load path, a FIFO as input. (What a worker does to
// it: worker_table_test.cpp.)

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "plugindriver.h"
#include "tests/transport/strangerchild.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Children of this process that have ended, reaped as a host that waits for
// all of its children does; waits up to 10 s for the first.
pid_t ReapAnyChild() {
    pid_t pid = -1;
    it::WaitUntil([&pid] { return (pid = ::waitpid(-1, nullptr, WNOHANG)) > 0; }, 10000);
    return pid > 0 ? pid : -1;
}

TEST(HostReapsItsChildren, AStrangerWithTheWorkersPidSurvivesDestroyCloseAndSeek) {
    it::TempDir dir;
    const std::string path = dir.File("tiny.wav");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=0.2", "-ac", "2", path});
    for (const std::string action : {"Destroy", "Close", "SetPosition"}) {
        SCOPED_TRACE(action);
        it::TestDecoder decoder;
        ASSERT_TRUE(decoder.Open(path, 0)) << decoder.ErrorLog();
        // The whole output fits into the pipe: the worker ends, and the host reaps it.
        const pid_t pid = ReapAnyChild();
        ASSERT_GT(pid, 0);
        const pid_t stranger = StartChildWithPid(pid);
        if (stranger < 0) GTEST_SKIP() << "the system gives no chosen pid (clone3 set_tid)";
        ASSERT_EQ(stranger, pid);
        const auto start = Clock::now();
        bool done = true;
        if (action == "Destroy") decoder.Destroy();
        if (action == "Close") done = decoder.Close();
        if (action == "SetPosition") done = decoder.SetPosition(4410);
        EXPECT_TRUE(done) << decoder.ErrorLog();
        EXPECT_LT(Clock::now() - start, 1500ms) << "a worker that is gone isn't given the 2 s grace time";
        EXPECT_TRUE(ChildRuns(stranger)) << "signalled or reaped by the plug-in";
        EndChild(stranger);
    }
    EXPECT_EQ(it::ChildrenAfter(3000), 0);
}

// The plug-in finds its worker beside itself, however it was named when
// loaded, after the host has changed its working directory.
TEST(PluginPath, RelativeLoadThenChdirStillFindsTheWorker) {
    it::TempDir dir;
    const std::string path = dir.File("tone.flac");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=0.5", "-ac", "2", path});
    const std::string reference = it::ReferenceDecode(path).data;
    const fs::path before = fs::current_path();
    const struct {
        const char* tree;
        const char* from;     // working directory at load, under the temporary folder
        const char* loaded;   // the name handed to the loader
    } cases[] = {
        {"a", ".", "a/./plugins/ffmpeg_decoder.so"},
        {"b", "b", "./plugins/./ffmpeg_decoder.so"},
        {"c", "c/plugins", "../plugins/ffmpeg_decoder.so"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.loaded);
        it::MakePluginTree(dir.File(c.tree), FD_FFMPEG_PATH);
        fs::current_path(dir.File(c.from));
        it::PluginLibrary plugin(c.loaded);
        fs::current_path("/");
        std::string samples;
        {
            it::TestDecoder decoder(plugin);
            ASSERT_TRUE(decoder.Open(path, 0)) << decoder.ErrorLog();
            ASSERT_TRUE(decoder.ReadToEnd(samples));
        }
        EXPECT_TRUE(samples == reference);
    }
    fs::current_path(before);
}

// A FIFO whose only writer left after bytes that are no audio fails at once:
// telling "can't open" from "can't decode" must not wait for a writer that
// never comes.
TEST(FifoInput, WhoseWriterLeftFailsAtOnce) {
    it::TempDir dir;
    const std::string input = dir.File("input.wav");
    ASSERT_EQ(::mkfifo(input.c_str(), 0600), 0);
    std::thread writer([&] {
        const int fd = ::open(input.c_str(), O_WRONLY | O_CLOEXEC);
        if (fd >= 0 && ::write(fd, "no audio here", 13) != 13) ADD_FAILURE() << "the write failed";
        ::close(fd);
    });
    it::QuitFifo quit(dir.File("quit"));
    it::TestDecoder decoder;
    ASSERT_TRUE(decoder.SetQuitEvent(quit.Path()));
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
