// Qel::thread ending a blocked run, and the pipe streams its threads block on.
// The Linux-only parts: threaded_posix.cpp.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "streampipe.h"
#include "transport/exceptions.h"
#include "transport/pipestream.h"
#include "transport/thread.h"
#include "transport/waitable.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

int64_t MsSince(Clock::time_point start) { return (Clock::now() - start) / 1ms; }

TEST(Thread, RestartAndDestroyEndABlockedThread) {
    std::atomic<int> aborted{0}, entered{0};
    std::atomic<bool> secondSawClearAborter{false};
    auto blocked = [&] {
        ++entered;
        EXPECT_THROW(Qel::WaitAny(nullptr, 0, -1), Qel::user_abort);   // waits for nothing but the aborter
        ++aborted;
    };
    auto worker = std::make_unique<Qel::thread>("blocked");
    worker->start(blocked);
    while (entered.load() == 0) std::this_thread::yield();
    // A second start ends the first run, then gives the new one a reset aborter.
    worker->start([&] {
        secondSawClearAborter = !Qel::CurrentAborter()->IsSet();
        blocked();
    });
    EXPECT_EQ(aborted.load(), 1);
    while (entered.load() == 1) std::this_thread::yield();
    const auto start = Clock::now();
    worker.reset();
    EXPECT_LT(MsSince(start), 1000);
    EXPECT_EQ(aborted.load(), 2);
    EXPECT_TRUE(secondSawClearAborter.load());
}

TEST(PipeStream, ReadsWhatThereIsThenTheEndStopsOnASetAborterAndOnTime) {
    StreamPipe pipe;
    pipe.out.write("hellox", 6);
    char buffer[100] = {};
    EXPECT_EQ(pipe.in.read(buffer, 5), 5u);
    EXPECT_EQ(std::string(buffer, 5), "hello");
    pipe.out.write("yz", 2);
    EXPECT_EQ(pipe.in.readSome(buffer, sizeof buffer), 3u) << "what is there, without waiting for more";
    EXPECT_EQ(std::string(buffer, 3), "xyz");
    pipe.out.write("vx", 2);
    {
        Qel::aborter stop;
        Qel::AborterScope scope(stop);
        stop.Set();
        EXPECT_EQ(pipe.in.read(buffer, 0), 0u);   // a count of zero never waits
        // Data that is there comes first; a read that would wait, and a skip, see the aborter.
        EXPECT_EQ(pipe.in.read(buffer, 1), 1u);
        EXPECT_THROW(pipe.in.skip(1), Qel::user_abort);
        EXPECT_EQ(pipe.in.readSome(buffer + 1, 1), 1u);
        EXPECT_EQ(std::string(buffer, 2), "vx");
        EXPECT_THROW(pipe.in.read(buffer, 1), Qel::user_abort);
        EXPECT_THROW(pipe.out.write("y", 1), Qel::user_abort);
    }
    // A silent pipe, and a full one that nobody reads, time out.
    pipe.in.timeoutSeconds = 0.5;
    const auto start = Clock::now();
    EXPECT_THROW(pipe.in.read(buffer, sizeof buffer), Qel::network_error_timeout);
    EXPECT_GE(MsSince(start), 450);
    EXPECT_LT(MsSince(start), 1500);
    pipe.out.timeoutSeconds = 0.2;
    std::vector<uint8_t> big(1 << 20);
    EXPECT_THROW(pipe.out.write(big.data(), big.size()), Qel::network_error_timeout);

    StreamPipe ending;
    ending.out.write("x", 1);
    ending.CloseWriteEnd();
    EXPECT_EQ(ending.in.read(buffer, sizeof buffer), 1u);
    EXPECT_EQ(buffer[0], 'x');
    EXPECT_EQ(ending.in.read(buffer, sizeof buffer), 0u);
    EXPECT_EQ(ending.in.read(buffer, sizeof buffer), 0u);
    EXPECT_THROW(Qel::streamInOverlapped().read(buffer, 1), Qel::file_access_error);
}

}  // namespace
