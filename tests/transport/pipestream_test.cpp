#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "pattern.h"
#include "transport/exceptions.h"
#include "transport/pipestream.h"
#include "transport/thread.h"
#include "transport/uniquefd_posix.h"
#include "transport/waitable.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

int64_t MsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(to - from).count();
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

TEST(PipeStream, ReadsWhatThereIsThenTheEnd) {
    Pipe pipe;
    ASSERT_EQ(::write(pipe.writeEnd.Get(), "hello", 5), 5);
    pipe.writeEnd.Reset();
    char buffer[100] = {};
    EXPECT_EQ(pipe.in.read(buffer, sizeof buffer), 5u);
    EXPECT_EQ(std::string(buffer, 5), "hello");
    EXPECT_EQ(pipe.in.read(buffer, sizeof buffer), 0u);
    EXPECT_EQ(pipe.in.read(buffer, sizeof buffer), 0u);

    Qel::streamInOverlapped closed;
    EXPECT_THROW(closed.read(buffer, 1), Qel::file_access_error);
}

TEST(PipeStream, ASetAborterStopsEveryPieceButACountOfZero) {
    Pipe pipe;
    ASSERT_EQ(::write(pipe.writeEnd.Get(), "x", 1), 1);
    Qel::aborter stop;
    Qel::AborterScope scope(stop);
    stop.Set();
    char byte = 0;
    EXPECT_EQ(pipe.in.read(&byte, 0), 0u);
    EXPECT_THROW(pipe.in.read(&byte, 1), Qel::user_abort);
    EXPECT_THROW(pipe.out.write("y", 1), Qel::user_abort);
}

TEST(PipeStream, AbortFromAnotherThreadEndsABlockedRead) {
    Pipe pipe;
    Qel::aborter stop;
    std::atomic<bool> aborted{false};
    Clock::time_point caught;
    std::thread reader([&] {
        Qel::AborterScope scope(stop);
        char buffer[16];
        try {
            pipe.in.read(buffer, sizeof buffer);
        } catch (const Qel::user_abort&) {
            caught = Clock::now();
            aborted = true;
        }
    });
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(aborted.load()) << "the read must block on a silent pipe";
    const auto set = Clock::now();
    stop.Set();
    reader.join();
    ASSERT_TRUE(aborted.load());
    EXPECT_LT(MsBetween(set, caught), 50);

    // The same through a Qel::thread's own aborter and its join.
    Qel::thread owner("reader");
    std::atomic<bool> ownAborted{false};
    owner.start([&] {
        char buffer[16];
        try {
            pipe.in.read(buffer, sizeof buffer);
        } catch (const Qel::user_abort&) {
            ownAborted = true;
        }
    });
    std::this_thread::sleep_for(100ms);
    const auto setOwn = Clock::now();
    owner.ownAborter()->Set();
    owner.join();
    EXPECT_LT(MsBetween(setOwn, Clock::now()), 50);
    EXPECT_TRUE(ownAborted.load());
}

TEST(PipeStream, TimeLimitOnASilentPipe) {
    Pipe pipe;
    pipe.in.timeoutSeconds = 0.5;
    char buffer[16];
    const auto start = Clock::now();
    EXPECT_THROW(pipe.in.read(buffer, sizeof buffer), Qel::network_error_timeout);
    const int64_t elapsed = MsBetween(start, Clock::now());
    EXPECT_GE(elapsed, 450);
    EXPECT_LT(elapsed, 1500);

    // A full pipe with nobody reading times out the writer the same way.
    pipe.out.timeoutSeconds = 0.2;
    std::vector<uint8_t> big(1 << 20);
    EXPECT_THROW(pipe.out.write(big.data(), big.size()), Qel::network_error_timeout);
}

TEST(PipeStream, WriteKeepsOrderThroughAFullPipe) {
    Pipe pipe;
    std::vector<uint8_t> sent(3 << 20);
    for (size_t i = 0; i < sent.size(); ++i) sent[i] = PatternByte(i);
    std::vector<uint8_t> received(sent.size() + 1);
    size_t got = 0;
    std::thread reader([&] {
        got = pipe.in.read(received.data(), received.size());
    });
    pipe.out.write(sent.data(), sent.size());
    pipe.writeEnd.Reset();
    reader.join();
    ASSERT_EQ(got, sent.size());
    EXPECT_TRUE(std::equal(sent.begin(), sent.end(), received.begin()));
}

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

}  // namespace
