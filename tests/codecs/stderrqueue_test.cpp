// The line reader over memory handed out in pieces of any size, and the
// error-stream queue with its real reader thread over a real pipe.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "codecs/decoders/ffmpeg/stderrqueue.h"
#include "transport/exceptions.h"
#include "transport/pipestream.h"
#include "transport/waitable.h"
#include "tests/transport/streampipe.h"

namespace {

using Lines = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Memory whose readSome gives at most `piece` bytes, as a pipe gives what a
// writer's call put in.
struct PieceStream : Qel::streamInMemory {
    PieceStream(const std::string& text, size_t piece) : streamInMemory(text.data(), text.size()), piece(piece) {}
    size_t readSome(void* buffer, size_t count) override {
        ++calls;
        return read(buffer, std::min(count, piece));
    }
    size_t piece, calls = 0;
};

Lines ReadAllLines(const std::string& text, size_t piece = 65536) {
    PieceStream stream(text, piece);
    StdErrLineReader reader(stream);
    Lines lines;
    try {
        for (;;) lines.push_back(reader.ReadLine());
    } catch (const Qel::invalid_input&) {
    }
    return lines;
}

// The writer stands for the worker, which no aborter of the host reaches.
void Write(StreamPipe& pipe, const std::string& text) {
    std::thread([&] { EXPECT_NO_THROW(pipe.out.write(text.data(), text.size())); }).join();
}

// Takes batches until `count` lines (or the line `last`) have come or a batch times out.
Lines TakeAtLeast(StdErrLineQueue& queue, size_t count, const std::string& last = "") {
    Lines all;
    while (all.size() < count && (last.empty() || all.empty() || all.back() != last)) {
        Lines batch = queue.TakeLines(5.0);
        if (batch.empty()) break;
        all.insert(all.end(), batch.begin(), batch.end());
    }
    return all;
}

}  // namespace

TEST(StdErrLineReader, LineEndsProgressTextAndOverlongLinesInPiecesOfAnySize) {
    const size_t limit = 0x1000000;
    std::string progress;   // 20 MiB of what a terminal overwrites in place
    for (int i = 0; progress.size() < (20u << 20); ++i) progress += "size=" + std::to_string(i) + "kB time=00:00:01.00\r";
    const struct { const char* name; std::string text; Lines lines; } cases[] = {
        {"nothing", "", {}}, {"line ends", "ab\r\n\ncd\n", {"ab", "", "cd"}},
        {"progress then its line feed", "size= 1\rsize= 2\r\n", {"size= 2"}},
        {"carriage returns before the line feed", "x\r\r\n\r\ny\n", {"x", "", "y"}},
        {"unfinished last line", "one\ntwo", {"one"}}, {"unfinished progress", "one\nsize= 1\r", {"one"}},
        {"bytes kept as they are", std::string("a\0b\xff\n", 5), {std::string("a\0b\xff", 4)}},
        {"the longest line", std::string(limit, 'x') + "\n", {std::string(limit, 'x')}},
        {"one byte over, then reading goes on", std::string(limit + 1, 'x') + "\nnext\n", {"next"}},
        {"over the limit by carriage returns only",
         std::string(limit, 'x') + "\r\r\n" + std::string(limit, 'y') + "\ry\n", {std::string(limit, 'x'), "y"}},
        {"20 MiB of progress", "Input #0\n" + progress + "done\n" + "after\n", {"Input #0", "done", "after"}},
    };
    for (const auto& c : cases) {
        for (size_t piece : {size_t{1}, size_t{7}, size_t{65536}}) {
            if (piece < 65536 && c.text.size() > 100000) continue;   // millions of calls prove nothing more
            EXPECT_EQ(ReadAllLines(c.text, piece), c.lines) << c.name << ", pieces of " << piece;
        }
    }
    // Chunks, not a call per byte.
    PieceStream stream(progress, 65536);
    StdErrLineReader reader(stream);
    EXPECT_THROW(reader.ReadLine(), Qel::invalid_input);
    EXPECT_LE(stream.calls, progress.size() / 65536 + 2);
}

// A worker that prints without end before anybody takes a line: the queue
// keeps the newest lines, in order, never more than 64 MiB of them.
TEST(StdErrLineQueue, HoldsAtMost64MiBDroppingTheOldestAndNothingOnceDiscarded) {
    StreamPipe pipe;
    StdErrLineQueue queue;
    queue.Start(pipe.in);
    std::string flood;
    for (int i = 0; i < 100000; ++i) flood += std::to_string(i) + std::string(1000, '.') + "\n";
    Write(pipe, flood + "end\n");
    const Lines lines = TakeAtLeast(queue, 100001, "end");
    ASSERT_GT(lines.size(), 1u);
    size_t bytes = 0;
    const int first = std::stoi(lines.front());
    for (size_t i = 0; i + 1 < lines.size(); ++i) {
        EXPECT_EQ(std::stoi(lines[i]), first + static_cast<int>(i));
        bytes += lines[i].size();
    }
    EXPECT_EQ(std::stoi(lines[lines.size() - 2]), 99999);
    EXPECT_GT(first, 0) << "the oldest lines went";
    EXPECT_LE(bytes, 64u << 20);

    // Once discarded, nothing is kept, queued or new. (That the reader goes on
    // draining the pipe: tests/faults/worker_fault_test.cpp.)
    Write(pipe, "queued\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    queue.Discard();
    Write(pipe, "later\n");
    EXPECT_TRUE(queue.TakeLines(0.2).empty());
}

// (Order over many batches: the 64 MiB test; lines cut across writes: the reader's test.)
TEST(StdErrLineQueue, TakeLinesTimesOutAndAbortsStopEndsABlockedReader) {
    StreamPipe pipe;
    StdErrLineQueue queue;
    EXPECT_TRUE(queue.TakeLines(10.0).empty()) << "a queue that never ran doesn't wait";
    queue.Start(pipe.in);
    EXPECT_TRUE(queue.Active());
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
        Write(pipe, "still read\n");
        quit.Reset();
        EXPECT_EQ(TakeAtLeast(queue, 1), (Lines{"still read"}));
        EXPECT_TRUE(queue.TakeLines(0.2).empty()) << "the take reset the event";
    }

    Write(pipe, "before stop\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));   // the reader now waits in its read
    start = Clock::now();
    queue.Stop();
    EXPECT_LT(SecondsSince(start), 2.0);
    EXPECT_FALSE(queue.Active());
    // Stop dropped the queued line; a new start reads only what comes after.
    queue.Start(pipe.in);
    Write(pipe, "after\r\nrestart\nunfinished");
    pipe.CloseWriteEnd();
    EXPECT_EQ(TakeAtLeast(queue, 2), (Lines{"after", "restart"})) << "an unfinished line never comes";
    EXPECT_TRUE(queue.TakeLines(0.2).empty());
    queue.Stop();
    EXPECT_FALSE(queue.Active());
}
