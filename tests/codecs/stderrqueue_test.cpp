// ReadLine over memory, and the error-stream queue with its real reader
// thread over a real pipe.

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

using Lines = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

Lines ReadAllLines(const std::string& text) {
    Qel::streamInMemory stream(text.data(), text.size());
    Lines lines;
    try {
        for (;;) lines.push_back(ReadLine(stream));
    } catch (const Qel::invalid_input&) {
    }
    return lines;
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
Lines TakeAtLeast(StdErrLineQueue& queue, size_t count) {
    Lines all;
    while (all.size() < count) {
        Lines batch = queue.TakeLines(5.0);
        if (batch.empty()) break;
        all.insert(all.end(), batch.begin(), batch.end());
    }
    return all;
}

}  // namespace

TEST(ReadLine, CarriageReturnsDroppedLastLineLostOverlongRefused) {
    EXPECT_EQ(ReadAllLines("ab\r\n\ncd\n"), (Lines{"ab", "", "cd"}));
    EXPECT_EQ(ReadAllLines("size= 1\rsize= 2\r\n"), (Lines{"size= 1size= 2"}));
    EXPECT_EQ(ReadAllLines("one\ntwo"), (Lines{"one"})) << "a last line without its line feed is lost";
    EXPECT_EQ(ReadAllLines(std::string("a\0b\n", 4)), (Lines{std::string("a\0b", 3)}));
    Qel::streamInMemory empty(nullptr, 0);
    EXPECT_THROW(ReadLine(empty), Qel::invalid_input);

    // The longest line, one byte more, and carriage returns that don't count.
    const size_t limit = 0x1000000;
    EXPECT_EQ(ReadAllLines(std::string(limit, 'x') + "\n"), (Lines{std::string(limit, 'x')}));
    EXPECT_TRUE(ReadAllLines(std::string(limit + 1, 'x') + "\n").empty());
    EXPECT_EQ(ReadAllLines(std::string(limit, 'x') + "\r\r\n"), (Lines{std::string(limit, 'x')}));
}

TEST(StdErrLineQueue, LinesArriveInOrderAcrossBatches) {
    Pipe pipe;
    StdErrLineQueue queue;
    queue.Start(pipe.stream);
    EXPECT_TRUE(queue.Active());
    pipe.Write("Input #0, flac, from 'x':\r\n  Metadata:\n");
    EXPECT_EQ(TakeAtLeast(queue, 2), (Lines{"Input #0, flac, from 'x':", "  Metadata:"}));
    EXPECT_TRUE(queue.TakeLines(0.2).empty()) << "the take reset the event";

    Lines expected;
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
    const Lines got = TakeAtLeast(queue, expected.size());
    writer.join();
    EXPECT_EQ(got, expected);

    pipe.Write("last\nunfinished");
    pipe.CloseWriter();
    EXPECT_EQ(TakeAtLeast(queue, 1), (Lines{"last"})) << "an unfinished line never comes";
    EXPECT_TRUE(queue.TakeLines(0.2).empty());
    queue.Stop();
    EXPECT_FALSE(queue.Active());
}

TEST(StdErrLineQueue, TakeLinesTimesOutAndAbortsStopEndsABlockedReader) {
    Pipe pipe;
    StdErrLineQueue queue;
    EXPECT_TRUE(queue.TakeLines(10.0).empty()) << "a queue that never ran doesn't wait";
    queue.Start(pipe.stream);
    auto start = Clock::now();
    EXPECT_TRUE(queue.TakeLines(0.3).empty());
    EXPECT_GE(SecondsSince(start), 0.25);
    EXPECT_LT(SecondsSince(start), 3.0);

    // The caller's aborter ends the wait; the reader has its own and reads on.
    {
        Qel::aborter quit;
        Qel::AborterScope scope(quit);
        std::thread setter([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            quit.Set();
        });
        start = Clock::now();
        EXPECT_THROW(queue.TakeLines(10.0), Qel::user_abort);
        EXPECT_LT(SecondsSince(start), 5.0);
        setter.join();
        pipe.Write("still read\n");
        quit.Reset();
        EXPECT_EQ(TakeAtLeast(queue, 1), (Lines{"still read"}));
    }

    pipe.Write("before stop\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));   // the reader now waits in its read
    start = Clock::now();
    queue.Stop();
    EXPECT_LT(SecondsSince(start), 2.0);
    EXPECT_FALSE(queue.Active());
    // Stop dropped the queued line; a new start reads only what comes after.
    queue.Start(pipe.stream);
    pipe.Write("after restart\n");
    EXPECT_EQ(TakeAtLeast(queue, 1), (Lines{"after restart"}));

    start = Clock::now();
    {
        StdErrLineQueue scoped;   // its destructor stops a reader that still waits
        scoped.Start(pipe.stream);
    }
    EXPECT_LT(SecondsSince(start), 2.0);
}
