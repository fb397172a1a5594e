// The pipe streams that the worker's channels are on the parent's side (a
// blocked reader ended by its thread: tests/codecs/stderrqueue_test.cpp).
// The Linux-only parts: threaded_posix.cpp.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "streampipe.h"
#include "transport/exceptions.h"
#include "transport/pipestream.h"
#include "transport/waitable.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

int64_t MsSince(Clock::time_point start) { return (Clock::now() - start) / 1ms; }

TEST(PipeStream, ReadsWhatThereIsThenTheEndAndStopsOnASetAborter) {
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
