#include <gtest/gtest.h>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "pattern.h"
#include "transport/exceptions.h"
#include "transport/thread.h"
#include "transport/worker.h"

namespace {

using Clock = std::chrono::steady_clock;

int64_t MsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
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
    char buffer[4096];
    while (size_t got = stream.read(buffer, sizeof buffer)) text.append(buffer, got);
    return text;
}

std::string ReadLine(Qel::streamIn& stream) {
    std::string line;
    char c = 0;
    while (stream.read(&c, 1) == 1 && c != '\n') line += c;
    return line;
}

std::set<std::string> Entries(const char* path) {
    std::set<std::string> names;
    DIR* dir = ::opendir(path);
    if (!dir) return names;
    const std::string own = std::to_string(::dirfd(dir));
    while (dirent* entry = ::readdir(dir))
        if (entry->d_name[0] != '.' && entry->d_name != own) names.insert(entry->d_name);
    ::closedir(dir);
    return names;
}

bool HasChildren() {
    errno = 0;
    return !(::waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD);
}

std::string Hex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned char c : bytes) hex += {digits[c >> 4], digits[c & 15]};
    return hex;
}

TEST(Worker, TenMebibytesArriveIntactThenTheEnd) {
    constexpr size_t kTotal = 10u << 20;
    WorkerProcess worker;
    worker.Start(ChildCommand({"pattern", std::to_string(kTotal)}));
    std::vector<uint8_t> buffer(1000003);   // odd size: pieces end anywhere
    size_t total = 0;
    size_t wrong = 0;
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
    std::string expected = Hex("transport_test_child") + "\n";
    for (const auto& arg : args) expected += Hex(arg) + "\n";
    EXPECT_EQ(ReadAll(worker.Stdout()), expected);
}

TEST(Worker, StopKillsAWorkerThatIgnoresItsClosedPipes) {
    WorkerProcess worker;
    worker.Start(ChildCommand({"pid", "ignore-pipe", "ignore-term", "sleep", "30000"}));
    const pid_t pid = std::stoi(ReadLine(worker.Stdout()));
    ASSERT_GT(pid, 0);
    auto start = Clock::now();
    worker.Stop();
    const int64_t elapsed = MsSince(start);
    EXPECT_GE(elapsed, 1900);
    EXPECT_LT(elapsed, 4000);
    EXPECT_EQ(::kill(pid, 0), -1) << "killed and reaped";
    EXPECT_FALSE(HasChildren());

    worker.Start(ChildCommand({"ignore-term", "sleep", "30000"}));
    start = Clock::now();
    worker.Terminate();
    EXPECT_LT(MsSince(start), 500);
    EXPECT_FALSE(HasChildren());
}

TEST(Worker, StartStopCyclesLeaveNothingBehind) {
    // Cycle 0 runs before the snapshot: a sanitizer's runtime starts helper
    // threads of its own with the first thread it sees.
    std::set<std::string> fdsBefore, tasksBefore;
    for (int i = 0; i <= 200; ++i) {
        if (i == 1) {
            fdsBefore = Entries("/proc/self/fd");
            tasksBefore = Entries("/proc/self/task");
        }
        WorkerProcess worker;
        worker.Start(ChildCommand({"lines", "3", "pattern", "200000"}));
        Qel::thread errors("errors");
        std::string errorText;
        errors.start([&] { errorText = ReadAll(worker.Stderr()); });
        char head[10];
        worker.Stdout().readExact(head, sizeof head);   // odd runs leave the rest unread
        const bool readAll = i % 2 == 0;
        if (readAll) {
            EXPECT_EQ(ReadAll(worker.Stdout()).size(), 200000u - sizeof head);
            errors.join();
            EXPECT_EQ(errorText, "line 0\nline 1\nline 2\n");
        }
        // The reader ends before its pipe closes, as in the decoder.
        errors.ownAborter()->Set();
        errors.join();
        worker.Stop();
        if (HasFailure()) break;
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
        int flags = ::fcntl(std::stoi(name), F_GETFD);
        if (flags >= 0 && !(flags & FD_CLOEXEC)) expected.insert(name);
    }
    WorkerProcess other;   // a second worker's pipes must not leak into the first
    other.Start(ChildCommand({"sleep", "100"}));
    WorkerProcess worker;
    worker.Start(ChildCommand({"fds"}));
    std::set<std::string> seen;
    for (std::string line; !(line = ReadLine(worker.Stdout())).empty();) seen.insert(line);
    EXPECT_EQ(seen, expected);
}

TEST(Worker, StandardInputModes) {
    WorkerCommand piped = ChildCommand({"stdin"});
    piped.stdinMode = 2;
    WorkerProcess worker;
    worker.Start(piped);
    std::vector<uint8_t> sent(300000);
    for (size_t i = 0; i < sent.size(); ++i) sent[i] = PatternByte(i);
    std::string echoed;
    Qel::thread reader("echo");
    reader.start([&] { echoed = ReadAll(worker.Stdout()); });
    worker.Stdin().write(sent.data(), sent.size());
    ::close(static_cast<int>(worker.Stdin().handle));   // the child's end of input
    worker.Stdin().handle = Qel::kNoPipe;
    reader.join();
    EXPECT_EQ(echoed, std::string(sent.begin(), sent.end()));

    worker.Start(ChildCommand({"stdin", "pattern", "5"}));   // mode 0: an empty input
    EXPECT_EQ(ReadAll(worker.Stdout()).size(), 5u);
}

TEST(Worker, StartFailuresRaiseTheirTextsAndLeaveNothingOpen) {
    const auto fdsBefore = Entries("/proc/self/fd");
    auto expectFailure = [](const std::string& exe, const char* text) {
        WorkerProcess worker;
        WorkerCommand command = ChildCommand({});
        command.exe = exe;
        try {
            worker.Start(command);
            ADD_FAILURE() << exe << " started";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), text) << exe;
        }
        EXPECT_FALSE(worker.Running());
        EXPECT_TRUE(worker.Command().exe.empty());
    };
    EXPECT_THROW(
        {
            WorkerProcess worker;
            WorkerCommand command = ChildCommand({});
            command.exe = "/nonexistent/worker";
            worker.Start(command);
        },
        Qel::file_not_found);
    expectFailure("/nonexistent/worker", "file not found");
    expectFailure("/etc/hostname/worker", "file not found");
    expectFailure(FD_SOURCE_DIR "/tests/transport/pattern.h", "could not start the worker process");

    char garbage[] = "/tmp/fd-transport-noexec-XXXXXX";
    int fd = ::mkstemp(garbage);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::write(fd, "\x01\x02\x03\x04garbage", 11), 11);
    ::fchmod(fd, 0700);
    ::close(fd);
    expectFailure(garbage, "could not start the worker process");
    ::unlink(garbage);

    EXPECT_EQ(Entries("/proc/self/fd"), fdsBefore);
    EXPECT_FALSE(HasChildren());
}

}  // namespace
