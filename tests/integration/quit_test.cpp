// The host's quit event ends a blocked call at once, silently, leaving no
// worker behind.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

#include "plugindriver.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
constexpr auto kPromptly = milliseconds(100);

// Polls until `ready` (20 s at most: a broken test fails rather than hangs).
void WaitFor(const std::atomic<bool>& ready) { it::WaitUntil([&ready] { return ready.load(); }, 20000); }

struct QuitTest : ::testing::Test {
    it::TempDir dir;
    it::QuitFifo quit{dir.File("quit")};
    it::TestDecoder decoder;
    std::atomic<bool> now{true};
    Clock::time_point setAt{};
    std::jthread setter;
    void SetUp() override { ASSERT_TRUE(decoder.SetQuitEvent(quit.Path())); }
    // Sets the event `delay` after `gate` turned true.
    void SetLater(milliseconds delay, const std::atomic<bool>& gate) {
        setter = std::jthread([this, delay, &gate] {
            WaitFor(gate);
            std::this_thread::sleep_for(delay);
            setAt = Clock::now();
            quit.Set();
        });
    }
    // The blocked call ended after the event was set, and promptly.
    void ExpectEndedPromptly() {
        const Clock::time_point ended = Clock::now();
        setter.join();
        EXPECT_GE((ended - setAt).count(), 0) << "the call ended before the event was set";
        EXPECT_LT(ended - setAt, kPromptly);
    }
};

// A FIFO as the input: with no writer the worker waits in its open, and so
// does Open, until the quit. One whose only writer left after bytes that
// are no audio fails at once: telling "can't open" from "can't decode"
// must not wait for a writer that never comes.
TEST_F(QuitTest, AFifoInputWaitsForTheQuitOrFailsAtOnce) {
    const std::string input = dir.File("input.wav");
    ASSERT_EQ(::mkfifo(input.c_str(), 0600), 0);
    SetLater(milliseconds(300), now);
    EXPECT_FALSE(decoder.Open(input, kOpenWantTags | kOpenWantInfo));
    ExpectEndedPromptly();
    EXPECT_EQ(decoder.ErrorLog(), "");
    auto start = Clock::now();
    decoder.Destroy();
    EXPECT_LT(Clock::now() - start, milliseconds(1000)) << "Destroy doesn't wait for the worker";
    EXPECT_EQ(it::ChildrenAfter(0), 0);

    quit.Reset();
    std::thread writer([&] {
        const int fd = ::open(input.c_str(), O_WRONLY | O_CLOEXEC);
        if (fd >= 0 && ::write(fd, "no audio here", 13) != 13) ADD_FAILURE() << "the write failed";
        ::close(fd);
    });
    it::TestDecoder fed;
    ASSERT_TRUE(fed.SetQuitEvent(quit.Path()));
    start = Clock::now();
    {
        it::Later hostGivesUp(milliseconds(3000), [&] { quit.Set(); });
        // A check that hangs can't be reached by the quit; this frees it, so the test fails instead of hanging.
        it::Later release(milliseconds(8000), [&] { ::close(::open(input.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)); });
        EXPECT_FALSE(fed.Open(input, 0));
    }
    EXPECT_LT(Clock::now() - start, milliseconds(3000)) << "the failure must come before the host's quit";
    writer.join();
    EXPECT_NE(fed.ErrorLog().find("File could not be decoded"), std::string::npos) << fed.ErrorLog();
}

// The quit lands in the middle of a block (the input stalls at no block
// boundary); reset, the run goes on, and every byte is ffmpeg's own, in order.
TEST_F(QuitTest, EndsDecodeBlockBlockedOnAStalledInputThenGoesOnExact) {
    // A WAV that promises ten seconds; the feeder gives three (the worker
    // looks at more than one before it starts), then stalls with the FIFO
    // open until released, then gives the rest.
    const std::string whole = dir.File("whole.wav");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=10", "-ac", "6", whole});
    const std::string all = it::ReadFile(whole);
    const size_t stallAt = 3 * 529200 + 1234;
    const std::string input = dir.File("stalled.wav");
    ASSERT_EQ(::mkfifo(input.c_str(), 0600), 0);
    std::signal(SIGPIPE, SIG_IGN);   // the worker goes before the feeder does
    std::atomic<bool> fed{false};
    std::atomic<bool> release{false};
    std::thread feeder([&] {
        // Opened once the worker reads; polled, so that a broken test can't hang here.
        int fd = -1;
        it::WaitUntil([&] { return (fd = ::open(input.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) >= 0; }, 20000);
        if (fd >= 0) ::fcntl(fd, F_SETFL, 0);
        auto feed = [fd, &all](size_t from, size_t to) {
            for (size_t done = from; fd >= 0 && done < to;) {
                const ssize_t n = ::write(fd, all.data() + done, to - done);
                if (n <= 0) break;
                done += static_cast<size_t>(n);
            }
        };
        feed(0, stallAt);
        fed = true;
        WaitFor(release);
        feed(stallAt, all.size());
        ::close(fd);
    });
    std::string samples;
    SetLater(milliseconds(300), fed);
    EXPECT_TRUE(decoder.Open(input, 0)) << decoder.ErrorLog();
    for (DecoderBlockInfo block{}; decoder.DecodeBlock(block);) {
        EXPECT_EQ(+block.endOfStream, 0) << "the stream hasn't ended, it stalls";
        if (block.endOfStream) break;
        samples.append(static_cast<const char*>(block.samples), block.bytes);
    }
    EXPECT_TRUE(fed);
    ExpectEndedPromptly();
    EXPECT_LE(samples.size(), stallAt);
    quit.Reset();
    release = true;
    EXPECT_TRUE(decoder.ReadToEnd(samples));
    feeder.join();
    EXPECT_EQ(samples.size(), it::ReferenceDecode(whole).data.size());
    EXPECT_TRUE(samples == it::ReferenceDecode(whole).data) << "shifted or lost bytes after the quit";
    EXPECT_EQ(decoder.ErrorLog(), "");
    EXPECT_TRUE(decoder.Close());
    EXPECT_EQ(it::ChildrenAfter(0), 0);
}

// A seek cut short before the new worker's header leaves a stream that isn't
// at a sample: DecodeBlock refuses at once, rather than hand out header
// bytes as audio or wait for the stalled worker.
TEST_F(QuitTest, AQuitInASeekLeavesDecodeBlockRefusing) {
    const std::string whole = dir.File("whole.wav");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1", "-ac", "2", whole});
    const std::string input = dir.File("once.wav");
    ASSERT_EQ(::mkfifo(input.c_str(), 0600), 0);
    std::thread feeder([&] {   // one writer, once: the seek's worker finds nobody
        const int fd = ::open(input.c_str(), O_WRONLY | O_CLOEXEC);
        const std::string bytes = it::ReadFile(whole);
        if (fd >= 0 && ::write(fd, bytes.data(), bytes.size()) < 0) ADD_FAILURE() << "feeding failed";
        ::close(fd);
    });
    ASSERT_TRUE(decoder.Open(input, 0)) << decoder.ErrorLog();
    feeder.join();
    SetLater(milliseconds(300), now);
    EXPECT_FALSE(decoder.SetPosition(22050));
    ExpectEndedPromptly();
    quit.Reset();
    // A broken decoder would wait for the worker: a second quit ends that.
    SetLater(milliseconds(1000), now);
    const auto start = Clock::now();
    DecoderBlockInfo block{};
    EXPECT_FALSE(decoder.DecodeBlock(block));
    EXPECT_LT(Clock::now() - start, kPromptly) << "DecodeBlock must refuse, not read";
    setter.join();
    quit.Reset();
    EXPECT_EQ(decoder.ErrorLog(), "");
}

// A set event refuses work before it starts; reset, the run goes on with
// nothing lost.
TEST_F(QuitTest, AlreadySetRefusesAtOnceAndLosesNothing) {
    const std::string path = dir.File("tone.flac");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1", "-ac", "2", path});
    quit.Set();
    const auto start = Clock::now();
    EXPECT_FALSE(decoder.Open(path, 0));
    EXPECT_LT(Clock::now() - start, kPromptly);
    EXPECT_EQ(it::ChildrenAfter(0), 0) << "no worker was started";

    quit.Reset();
    ASSERT_TRUE(decoder.Open(path, 0));
    DecoderBlockInfo block{};
    ASSERT_TRUE(decoder.DecodeBlock(block));
    std::string samples(static_cast<const char*>(block.samples), block.bytes);
    quit.Set();
    EXPECT_FALSE(decoder.DecodeBlock(block));
    quit.Reset();
    ASSERT_TRUE(decoder.ReadToEnd(samples));
    EXPECT_TRUE(samples == it::ReferenceDecode(path).data);
    EXPECT_EQ(decoder.ErrorLog(), "");
}

}  // namespace
