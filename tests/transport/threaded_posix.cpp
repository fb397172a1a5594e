// The Linux side of Qel::thread, and the worker process itself with a test
// child (misbehaving workers: tests/integration).

#include <gtest/gtest.h>
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "transport/exceptions.h"
#include "transport/latereaper_posix.h"
#include "transport/thread.h"
#include "transport/worker.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Runs in a thread of lower priority (always allowed), so that inheriting it
// shows; what it throws ends it silently.
TEST(Thread, RunsNamedAtItsCreatorsPriorityWithItsOwnAborter) {
    std::thread([] {
        ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), 5);
        Qel::thread worker("StdErrReader-long-name");
        char name[16] = {};
        int priority = 0;
        Qel::aborter* seen = nullptr;
        worker.start([&] {
            seen = Qel::CurrentAborter();
            pthread_getname_np(pthread_self(), name, sizeof name);
            priority = Qel::CurrentThreadPriority();
            throw std::runtime_error("swallowed");
        });
        worker.join();
        EXPECT_STREQ(name, "StdErrReader-lo");
        EXPECT_EQ(priority, -5);
        EXPECT_TRUE(seen != nullptr && seen == worker.ownAborter());
    }).join();
}

WorkerCommand ChildCommand(std::vector<std::string> args, uint32_t stdinMode = 0, std::string exe = FD_TEST_CHILD) {
    args.insert(args.begin(), "fake_worker");
    return {.exe = std::move(exe), .args = std::move(args), .rawCommandLine = {}, .workingDirectory = {}, .stdinMode = stdinMode};
}

// Up to the end of the stream, or of the first line.
std::string Read(Qel::streamIn& stream, bool line = false) {
    std::string text;
    for (char c = 0; stream.read(&c, 1) == 1 && !(line && c == '\n');) text += c;
    return text;
}

// The entries of /proc/self/fd, or the lines of a child's listing of its own.
std::set<int> Descriptors(const std::string& listing = {}) {
    std::set<int> fds;
    std::istringstream lines(listing);
    for (std::string line; std::getline(lines, line);) fds.insert(std::stoi(line));
    if (!listing.empty()) return fds;
    DIR* dir = ::opendir("/proc/self/fd");
    while (dirent* entry = ::readdir(dir))
        if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != ::dirfd(dir)) fds.insert(std::atoi(entry->d_name));
    ::closedir(dir);
    return fds;
}

bool HasChildren() { return ::waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD; }

// The child holds 0-2 and whatever the test process itself left open without
// close-on-exec: no pipe of another worker, or that one would never see the
// end of its stream.
TEST(Worker, OnlyStandardChannelsAreInherited) {
    WorkerProcess worker;
    std::set<int> inherited = {0, 1, 2};
    for (const int fd : Descriptors())
        if (const int flags = ::fcntl(fd, F_GETFD); flags >= 0 && !(flags & FD_CLOEXEC)) inherited.insert(fd);
    WorkerProcess other;
    other.Start(ChildCommand({"sleep", "100"}));
    worker.Start(ChildCommand({"stdin", "fds"}));   // stdin: at its end at once
    EXPECT_EQ(Descriptors(Read(worker.Stdout())), inherited);
}

// How long a stop takes, and that the child is gone after it. A traced child
// can't be reaped by its parent while the tracer lives, as one in an
// uninterruptible sleep: the stop is bounded and the child reaped later.
TEST(Worker, StopsAreBoundedAndReapTheChild) {
    const struct { const char* name; std::vector<std::string> args; bool traced, terminate; int64_t minMs, maxMs; } rows[] = {
        {"ended long ago, Stop", {"pid"}, false, false, 0, 100},
        {"ignores SIGTERM, Terminate", {"pid", "ignore-pipe", "ignore-term", "sleep", "30000"}, false, true, 0, 500},
        {"traced, Terminate: killed at once", {"pid", "ignore-pipe", "sleep", "30000"}, true, true, 1900, 3500},
        {"traced, Stop: killed after the grace time", {"pid", "ignore-pipe", "sleep", "30000"}, true, false, 3900, 5500},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        WorkerProcess worker, tracer;
        worker.Start(ChildCommand(row.args));
        const pid_t pid = std::stoi(Read(worker.Stdout(), true));
        if (row.traced) {
            tracer.Start(ChildCommand({"trace", std::to_string(pid), "stdin"}, 2));
            if (Read(tracer.Stdout(), true) != "traced") GTEST_SKIP() << "ptrace is not allowed here";
        } else if (!row.terminate) {
            Read(worker.Stdout());
            std::this_thread::sleep_for(100ms);
        }
        const auto start = Clock::now();
        row.terminate ? worker.Terminate() : worker.Stop();
        const int64_t took = (Clock::now() - start) / 1ms;
        EXPECT_TRUE(took >= row.minMs && took < row.maxMs) << took << " ms";
        EXPECT_FALSE(worker.Running());
        EXPECT_EQ(Qel::WorkersLeftToReap(), row.traced ? 1u : 0u);
        tracer.Stop();   // its stdin closes, it ends, and the worker can be reaped
        for (const auto end = Clock::now() + 5s; Qel::WorkersLeftToReap() != 0 && Clock::now() < end;)
            std::this_thread::sleep_for(10ms);
        EXPECT_EQ(Qel::WorkersLeftToReap(), 0u);
        EXPECT_FALSE(HasChildren()) << "killed and reaped, no zombie left";
    }
}

TEST(Worker, StartFailuresRaiseTheirTextsAndLeaveNothingOpen) {
    char garbage[] = "/tmp/fd-transport-noexec-XXXXXX";   // executable, but no program
    const int fd = ::mkstemp(garbage);
    ASSERT_TRUE(fd >= 0 && ::write(fd, "\x01\x02\x03\x04garbage", 11) == 11 && ::fchmod(fd, 0700) == 0);
    ::close(fd);
    const std::set<int> descriptors = Descriptors();
    const std::pair<std::string, std::string> rows[] = {
        {"/nonexistent/worker", "file not found"}, {"/etc/hostname/worker", "file not found"},
        {FD_SOURCE_DIR "/tests/transport/pattern.h", "could not start the worker process"},
        {garbage, "could not start the worker process"}};
    for (const auto& [exe, text] : rows) {
        WorkerProcess worker;
        try {
            worker.Start(ChildCommand({}, 0, exe));
            ADD_FAILURE() << exe << " started";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), text) << exe;
            EXPECT_EQ(dynamic_cast<const Qel::file_not_found*>(&error) != nullptr, text == "file not found") << exe;
        }
        EXPECT_FALSE(worker.Running());
        EXPECT_TRUE(worker.Command().exe.empty());
    }
    ::unlink(garbage);
    EXPECT_EQ(Descriptors(), descriptors);
    EXPECT_FALSE(HasChildren());
}

}  // namespace
