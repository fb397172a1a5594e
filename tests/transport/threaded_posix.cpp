// The Linux side of Qel::thread (name, priority), a pipe write without a
// reader, and the worker process (the test child stands in for the real
// worker).

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
#include <cstring>
#include <chrono>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "pattern.h"
#include "strangerchild.h"
#include "transport/exceptions.h"
#include "transport/latereaper_posix.h"
#include "transport/pipestream.h"
#include "transport/thread.h"
#include "transport/uniquefd_posix.h"
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

struct Pipe {
    Pipe() {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
        readEnd.Reset(ends[0]);
        writeEnd.Reset(ends[1]);
        in.handle = readEnd.Get();
        out.handle = writeEnd.Get();
    }
    Qel::UniqueFd readEnd, writeEnd;
    Qel::streamInOverlapped in;
    Qel::streamOutOverlapped out;
};

std::atomic<int> sigpipeCount{0};

TEST(PipeStream, WriteWithoutAReaderRaisesAndNoSignalArrives) {
    struct sigaction counting {}, previous{};
    counting.sa_handler = [](int) { ++sigpipeCount; };
    sigemptyset(&counting.sa_mask);
    ASSERT_EQ(::sigaction(SIGPIPE, &counting, &previous), 0);
    sigset_t maskBefore, maskAfter, pending;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &maskBefore);
    Pipe pipe;
    pipe.readEnd.Reset();
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
    command.args = {"transport_test_child"};
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

bool HasChildren() { return ::waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD; }

TEST(Worker, TenMebibytesArriveIntactThenTheEnd) {
    constexpr size_t kTotal = 10u << 20;
    WorkerProcess worker;
    worker.Start(ChildCommand({"stdin", "pattern", std::to_string(kTotal)}));   // stdin: empty, not inherited
    std::vector<uint8_t> buffer(1000003);   // odd size: pieces end anywhere
    size_t total = 0, wrong = 0;
    while (size_t got = worker.Stdout().read(buffer.data(), buffer.size())) {
        for (size_t i = 0; i < got; ++i) wrong += buffer[i] != PatternByte(total + i);
        total += got;
    }
    EXPECT_EQ(total, kTotal);
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(worker.Stdout().read(buffer.data(), 1), 0u);
    const auto start = Clock::now();
    worker.Stop();
    EXPECT_LT(MsSince(start), 200) << "a worker that ended makes Stop return at once";
    EXPECT_FALSE(worker.Running());
    worker.Stop();   // harmless on a stopped object
}

TEST(Worker, ArgumentsArriveByteForByte) {
    const std::vector<std::string> args = {"args", "a b  c", "say \"hi\"", "", "back\\slash\\",
                                           "\xC3\xA9t\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xB5", "-i"};
    WorkerProcess worker;
    worker.Start(ChildCommand(args));
    std::string expected;
    for (const auto& arg : ChildCommand(args).args) {
        for (unsigned char c : arg) expected += {"0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
        expected += "\n";
    }
    EXPECT_EQ(ReadAll(worker.Stdout()), expected);
}

TEST(Worker, StopKillsAWorkerThatIgnoresItsClosedPipes) {
    WorkerProcess worker;
    worker.Start(ChildCommand({"pid", "ignore-pipe", "ignore-term", "sleep", "30000"}));
    std::string pidLine;
    for (char c = 0; worker.Stdout().read(&c, 1) == 1 && c != '\n';) pidLine += c;
    const pid_t pid = std::stoi(pidLine);
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

std::string ReadLineOf(Qel::streamIn& stream) {
    std::string line;
    for (char c = 0; stream.read(&c, 1) == 1 && c != '\n';) line += c;
    return line;
}

// A host that reaps all its children (or ignores SIGCHLD) takes the worker
// away; its pid may then belong to another process, which the stop must
// neither signal nor reap.
TEST(Worker, StopLeavesAloneAProcessThatTookThePidOfAReapedWorker) {
    for (const bool terminate : {false, true}) {
        WorkerProcess worker;
        worker.Start(ChildCommand({"pid"}));
        const pid_t pid = std::stoi(ReadLineOf(worker.Stdout()));
        ASSERT_EQ(::waitpid(pid, nullptr, 0), pid) << "the host reaps the worker";
        const pid_t stranger = StartChildWithPid(pid);
        if (stranger < 0) GTEST_SKIP() << "the system gives no chosen pid (clone3 set_tid): " << std::strerror(errno);
        ASSERT_EQ(stranger, pid);
        const auto start = Clock::now();
        terminate ? worker.Terminate() : worker.Stop();
        EXPECT_LT(MsSince(start), 500) << "a worker that is gone isn't waited for";
        EXPECT_TRUE(ChildRuns(stranger)) << (terminate ? "Terminate" : "Stop") << " signalled or reaped it";
        EndChild(stranger);
    }
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

TEST(Worker, StartStopCyclesLeaveNothingBehind) {
    // Cycle 0 runs before the snapshot: a sanitizer's runtime starts helper
    // threads of its own with the first thread it sees.
    std::set<std::string> fdsBefore, tasksBefore;
    for (int i = 0; i <= 200 && !HasFailure(); ++i) {
        if (i == 1) fdsBefore = Entries("/proc/self/fd"), tasksBefore = Entries("/proc/self/task");
        WorkerProcess worker;
        worker.Start(ChildCommand({"lines", "3", "pattern", "200000"}));
        Qel::thread errors("errors");
        std::string errorText;
        errors.start([&] { errorText = ReadAll(worker.Stderr()); });
        char head[10];
        worker.Stdout().readExact(head, sizeof head);   // odd runs leave the rest unread
        if (i % 2 == 0) {
            EXPECT_EQ(ReadAll(worker.Stdout()).size(), 200000u - sizeof head);
            errors.join();
            EXPECT_EQ(errorText, "line 0\nline 1\nline 2\n");
        }
        // The reader ends before its pipe closes, as in the decoder.
        errors.ownAborter()->Set();
        errors.join();
        worker.Stop();
    }
    EXPECT_EQ(Entries("/proc/self/fd"), fdsBefore);
    EXPECT_EQ(Entries("/proc/self/task"), tasksBefore);
    EXPECT_FALSE(HasChildren());
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
    worker.Start(ChildCommand({"fds"}));
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
