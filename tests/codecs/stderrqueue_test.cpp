// The error-stream queue with its real reader thread over a real pipe.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "codecs/decoders/ffmpeg/stderrqueue.h"
#include "transport/exceptions.h"
#include "transport/pipestream.h"
#include "transport/waitable.h"

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A pipe whose read end is a stream as the worker's error stream is one.
class Pipe {
public:
    Pipe() {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
        readFd_ = fds[0];
        writeFd_ = fds[1];
        ::fcntl(readFd_, F_SETFL, O_NONBLOCK);
        stream.handle = readFd_;
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        CloseWriter();
        ::close(readFd_);
    }
    void Write(const std::string& text) {
        ASSERT_EQ(::write(writeFd_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void CloseWriter() {
        if (writeFd_ >= 0) ::close(writeFd_);
        writeFd_ = -1;
    }
    Qel::streamInOverlapped stream;

private:
    int readFd_ = -1;
    int writeFd_ = -1;
};

// Takes batches until `count` lines have come or a batch times out.
std::vector<std::string> TakeAtLeast(StdErrLineQueue& queue, size_t count) {
    std::vector<std::string> all;
    while (all.size() < count) {
        std::vector<std::string> batch = queue.TakeLines(5.0);
        if (batch.empty()) break;
        all.insert(all.end(), batch.begin(), batch.end());
    }
    return all;
}

}  // namespace

TEST(StdErrLineQueue, LinesArriveInOrderAcrossBatches) {
    Pipe pipe;
    StdErrLineQueue queue;
    queue.Start(pipe.stream);
    EXPECT_TRUE(queue.Active());

    pipe.Write("Input #0, flac, from 'x':\r\n  Metadata:\n");
    EXPECT_EQ(TakeAtLeast(queue, 2), (std::vector<std::string>{"Input #0, flac, from 'x':", "  Metadata:"}));
    // Everything was taken: the event was reset with the take.
    EXPECT_TRUE(queue.TakeLines(0.2).empty());

    std::vector<std::string> expected;
    std::string burst;
    for (int i = 0; i < 500; ++i) {
        expected.push_back("line " + std::to_string(i));
        burst += expected.back() + "\n";
    }
    std::thread writer([&] {
        // Pieces that cut lines in the middle, with pauses between them.
        for (size_t at = 0; at < burst.size(); at += 777) {
            pipe.Write(burst.substr(at, 777));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    std::vector<std::string> got = TakeAtLeast(queue, expected.size());
    writer.join();
    EXPECT_EQ(got, expected);

    // The final line without a line feed never reaches the queue.
    pipe.Write("last\nunfinished");
    pipe.CloseWriter();
    EXPECT_EQ(TakeAtLeast(queue, 1), (std::vector<std::string>{"last"}));
    EXPECT_TRUE(queue.TakeLines(0.2).empty());
    queue.Stop();
    EXPECT_FALSE(queue.Active());
}

TEST(StdErrLineQueue, TakeLinesTimesOut) {
    Pipe pipe;
    StdErrLineQueue queue;
    queue.Start(pipe.stream);
    const auto start = Clock::now();
    EXPECT_TRUE(queue.TakeLines(0.3).empty());
    const double waited = SecondsSince(start);
    EXPECT_GE(waited, 0.25);
    EXPECT_LT(waited, 3.0);

    // A queue that never ran has nothing and doesn't wait.
    StdErrLineQueue idle;
    EXPECT_TRUE(idle.TakeLines(10.0).empty());
}

TEST(StdErrLineQueue, StopEndsABlockedReaderPromptly) {
    Pipe pipe;
    StdErrLineQueue queue;
    queue.Start(pipe.stream);
    pipe.Write("before stop\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));   // the reader now waits in its read
    const auto start = Clock::now();
    queue.Stop();
    EXPECT_LT(SecondsSince(start), 2.0);
    EXPECT_FALSE(queue.Active());

    // Stop dropped the queued line; a new start reads only what comes after.
    queue.Start(pipe.stream);
    pipe.Write("after restart\n");
    EXPECT_EQ(TakeAtLeast(queue, 1), (std::vector<std::string>{"after restart"}));

    // The destructor stops a reader that still waits.
    const auto destroyStart = Clock::now();
    {
        StdErrLineQueue scoped;
        scoped.Start(pipe.stream);
    }
    EXPECT_LT(SecondsSince(destroyStart), 2.0);
}

TEST(StdErrLineQueue, CallersAborterEndsTheWait) {
    Pipe pipe;
    StdErrLineQueue queue;
    queue.Start(pipe.stream);
    Qel::aborter quit;
    Qel::AborterScope scope(quit);
    std::thread setter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        quit.Set();
    });
    const auto start = Clock::now();
    EXPECT_THROW(queue.TakeLines(10.0), Qel::user_abort);
    EXPECT_LT(SecondsSince(start), 5.0);
    setter.join();
    // The reader has an aborter of its own: it goes on reading.
    pipe.Write("still read\n");
    quit.Reset();
    EXPECT_EQ(TakeAtLeast(queue, 1), (std::vector<std::string>{"still read"}));
}
