// The Linux side of Qel::thread, a pipe write without a reader, and the
// worker process (the test child stands in for the real worker).

#include <gtest/gtest.h>
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "streampipe.h"
#include "transport/exceptions.h"
#include "transport/latereaper_posix.h"
#include "transport/pipestream.h"
#include "transport/thread.h"
#include "transport/waitable.h"
#include "transport/worker.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

int64_t MsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

TEST(Thread, RunsNamedWithItsOwnAborterAndSwallowsExceptions) {
    Qel::aborter outer;
    Qel::AborterScope scope(outer);
    Qel::thread worker("StdErrReader-long-name");
    char name[16] = {};
    Qel::aborter* seenAborter = nullptr;
    worker.start([&] {
        pthread_getname_np(pthread_self(), name, sizeof name);
        seenAborter = Qel::CurrentAborter();
        throw std::runtime_error("swallowed");
    });
    worker.join();
    EXPECT_FALSE(worker.running());
    EXPECT_STREQ(name, "StdErrReader-lo");
    ASSERT_NE(worker.ownAborter(), nullptr);
    EXPECT_EQ(seenAborter, worker.ownAborter());
    EXPECT_EQ(Qel::CurrentAborter(), &outer);

    // Without the flags there is no aborter, and the creator's isn't inherited.
    Qel::thread plain("", 0);
    plain.start([&] { seenAborter = Qel::CurrentAborter(); });
    plain.join();
    EXPECT_EQ(plain.ownAborter(), nullptr);
    EXPECT_EQ(seenAborter, nullptr);
}

TEST(Thread, RunsAtItsCreatorsPriority) {
    int creator = 0, created = 1;
    // A lower priority is always allowed; do it in a thread of its own.
    std::thread helper([&] {
        ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), 5);
        creator = Qel::CurrentThreadPriority();
        Qel::thread worker("prio");
        worker.start([&] { created = Qel::CurrentThreadPriority(); });
        worker.join();
    });
    helper.join();
    EXPECT_EQ(creator, -5);
    EXPECT_EQ(created, creator);
}

std::atomic<int> sigpipeCount{0};

TEST(PipeStream, WriteWithoutAReaderRaisesAndNoSignalArrives) {
    struct sigaction counting {}, previous{};
    counting.sa_handler = [](int) { ++sigpipeCount; };
    sigemptyset(&counting.sa_mask);
    ASSERT_EQ(::sigaction(SIGPIPE, &counting, &previous), 0);
    sigset_t maskBefore, maskAfter, pending;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &maskBefore);
    StreamPipe pipe;
    ::close(static_cast<int>(pipe.in.handle));   // no reader
    pipe.in.handle = Qel::kNoPipe;
    EXPECT_THROW(pipe.out.write("data", 4), Qel::file_access_error);
    EXPECT_THROW(pipe.out.write("data", 4), Qel::file_access_error);
    ::pthread_sigmask(SIG_SETMASK, nullptr, &maskAfter);
    ::sigpending(&pending);
    EXPECT_EQ(sigpipeCount.load(), 0);
    EXPECT_FALSE(sigismember(&pending, SIGPIPE));
    EXPECT_EQ(sigismember(&maskAfter, SIGPIPE), sigismember(&maskBefore, SIGPIPE));
    ::sigaction(SIGPIPE, &previous, nullptr);
}

WorkerCommand ChildCommand(std::vector<std::string> args) {
    WorkerCommand command;
    command.exe = FD_TEST_CHILD;
    command.args = {"fake_worker"};
    command.args.insert(command.args.end(), args.begin(), args.end());
    return command;
}

std::string ReadAll(Qel::streamIn& stream) {
    std::string text;
    for (char buffer[4096]; size_t got = stream.read(buffer, sizeof buffer);) text.append(buffer, got);
    return text;
}

std::set<std::string> Entries(const char* path) {
    std::set<std::string> names;
    DIR* dir = ::opendir(path);
    while (dirent* entry = ::readdir(dir))
        if (entry->d_name[0] != '.' && std::stoi(entry->d_name) != ::dirfd(dir)) names.insert(entry->d_name);
    ::closedir(dir);
    return names;
}

std::string ReadLineOf(Qel::streamIn& stream) {
    std::string line;
    for (char c = 0; stream.read(&c, 1) == 1 && c != '\n';) line += c;
    return line;
}

bool HasChildren() { return ::waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD; }

TEST(Worker, ArgumentsArriveByteForByte) {
    const std::vector<std::string> args = {"args", "a b  c", "say \"hi\"", "", "back\\slash\\",
                                           "\xC3\xA9t\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xB5", "-i"};
    WorkerProcess worker;
    worker.Start(ChildCommand(args));
    std::string expected;
    for (const auto& arg : ChildCommand(args).args) expected += arg + '\0';
    EXPECT_EQ(ReadAll(worker.Stdout()), expected);
}

TEST(Worker, StopKillsAWorkerThatIgnoresItsClosedPipes) {
    WorkerProcess worker;
    worker.Start(ChildCommand({"pid", "ignore-pipe", "ignore-term", "sleep", "30000"}));
    const pid_t pid = std::stoi(ReadLineOf(worker.Stdout()));
    auto start = Clock::now();
    worker.Stop();
    EXPECT_GE(MsSince(start), 1900);
    EXPECT_LT(MsSince(start), 4000);
    EXPECT_EQ(::kill(pid, 0), -1) << "killed and reaped";
    EXPECT_FALSE(HasChildren());

    worker.Start(ChildCommand({"ignore-term", "sleep", "30000"}));
    start = Clock::now();
    worker.Terminate();
    EXPECT_LT(MsSince(start), 500);
    EXPECT_FALSE(HasChildren());
}

// A worker that even SIGKILL doesn't end at once (uninterruptible sleep;
// here a traced child, which its parent can't reap while the tracer lives)
// holds a stop up only for a bounded time, and is reaped once it ends.
TEST(Worker, StopIsBoundedForAWorkerThatCannotBeReapedAndReapsItLater) {
    for (const bool terminate : {true, false}) {
        WorkerProcess worker;
        worker.Start(ChildCommand({"pid", "ignore-pipe", "sleep", "30000"}));
        const pid_t pid = std::stoi(ReadLineOf(worker.Stdout()));
        WorkerProcess tracer;
        WorkerCommand command = ChildCommand({"trace", std::to_string(pid), "stdin"});
        command.stdinMode = 2;
        tracer.Start(command);
        if (ReadLineOf(tracer.Stdout()) != "traced") GTEST_SKIP() << "ptrace is not allowed here";

        const auto start = Clock::now();
        terminate ? worker.Terminate() : worker.Stop();
        const int64_t expectedMs = terminate ? 2000 : 4000;   // kill at once, or after the grace time
        EXPECT_GE(MsSince(start), expectedMs - 100);
        EXPECT_LT(MsSince(start), expectedMs + 1500);
        EXPECT_FALSE(worker.Running());
        EXPECT_EQ(Qel::WorkersLeftToReap(), 1u);

        tracer.Stop();   // its stdin closes, it ends, and the worker can be reaped
        for (const auto end = Clock::now() + 5s; Qel::WorkersLeftToReap() != 0 && Clock::now() < end;)
            std::this_thread::sleep_for(10ms);
        EXPECT_EQ(Qel::WorkersLeftToReap(), 0u);
        EXPECT_FALSE(HasChildren()) << "no zombie left";
    }
}

TEST(Worker, ChildHoldsOnlyItsStandardChannels) {
    // What a worker may inherit: 0-2 and whatever the test process itself
    // left open without close-on-exec.
    std::set<std::string> expected = {"0", "1", "2"};
    for (const auto& name : Entries("/proc/self/fd")) {
        const int flags = ::fcntl(std::stoi(name), F_GETFD);
        if (flags >= 0 && !(flags & FD_CLOEXEC)) expected.insert(name);
    }
    WorkerProcess other;   // a second worker's pipes must not leak into the first
    other.Start(ChildCommand({"sleep", "100"}));
    WorkerProcess worker;
    worker.Start(ChildCommand({"stdin", "fds"}));   // stdin: at its end at once, nothing inherited
    std::set<std::string> seen;
    std::istringstream lines(ReadAll(worker.Stdout()));
    for (std::string line; std::getline(lines, line);) seen.insert(line);
    EXPECT_EQ(seen, expected);
}

TEST(Worker, StartFailuresRaiseTheirTextsAndLeaveNothingOpen) {
    const auto fdsBefore = Entries("/proc/self/fd");
    auto expectFailure = [](const std::string& exe, const std::string& text) {
        WorkerProcess worker;
        WorkerCommand command = ChildCommand({});
        command.exe = exe;
        try {
            worker.Start(command);
            ADD_FAILURE() << exe << " started";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), text) << exe;
            EXPECT_EQ(dynamic_cast<const Qel::file_not_found*>(&error) != nullptr, text == "file not found") << exe;
        }
        EXPECT_FALSE(worker.Running());
        EXPECT_TRUE(worker.Command().exe.empty());
    };
    expectFailure("/nonexistent/worker", "file not found");
    expectFailure("/etc/hostname/worker", "file not found");
    expectFailure(FD_SOURCE_DIR "/tests/transport/pattern.h", "could not start the worker process");

    char garbage[] = "/tmp/fd-transport-noexec-XXXXXX";   // executable, but no program
    const int fd = ::mkstemp(garbage);
    ASSERT_TRUE(fd >= 0 && ::write(fd, "\x01\x02\x03\x04garbage", 11) == 11 && ::fchmod(fd, 0700) == 0);
    ::close(fd);
    expectFailure(garbage, "could not start the worker process");
    ::unlink(garbage);

    EXPECT_EQ(Entries("/proc/self/fd"), fdsBefore);
    EXPECT_FALSE(HasChildren());
}

}  // namespace
