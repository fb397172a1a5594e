// The host's quit event ends a blocked Open or DecodeBlock at once, silently,
// and leaves no worker behind once the decoder is closed or destroyed.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <chrono>
#include <cmath>
#include <string>
#include <thread>

#include "plugindriver.h"
#include "testkit.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPromptly = std::chrono::milliseconds(100);

// The host's side of a quit event: a FIFO it sets by writing one byte.
class QuitFifo {
public:
    explicit QuitFifo(const std::string& path) : path_(path) {
        EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
        fd_ = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        EXPECT_GE(fd_, 0);
    }
    ~QuitFifo() { ::close(fd_); }
    const std::string& Path() const { return path_; }
    void Set() { ASSERT_EQ(::write(fd_, "q", 1), 1); }
    void Reset() {
        char byte;
        while (::read(fd_, &byte, 1) == 1) {
        }
    }

private:
    std::string path_;
    int fd_ = -1;
};

// Sets the event a delay after `gate` turned true (waiting at most 20 s for
// it, so that a test that goes wrong fails instead of hanging), and notes when.
class DelayedSet {
public:
    DelayedSet(QuitFifo& quit, std::chrono::milliseconds delay, const std::atomic<bool>* gate = nullptr)
        : thread_([this, &quit, delay, gate] {
              const auto giveUp = Clock::now() + std::chrono::seconds(20);
              while (gate && !*gate && Clock::now() < giveUp) std::this_thread::sleep_for(std::chrono::milliseconds(5));
              std::this_thread::sleep_for(delay);
              setAt_ = Clock::now();
              quit.Set();
          }) {}
    DelayedSet(const DelayedSet&) = delete;
    DelayedSet& operator=(const DelayedSet&) = delete;
    ~DelayedSet() {
        if (thread_.joinable()) thread_.join();
    }
    Clock::duration SinceSet() {
        const Clock::time_point now = Clock::now();
        if (thread_.joinable()) thread_.join();
        return now - setAt_;
    }

private:
    Clock::time_point setAt_{};
    std::thread thread_;
};

// The blocked call ended after the event was set, and promptly.
void ExpectEndedPromptlyAfter(DelayedSet& set) {
    const Clock::duration since = set.SinceSet();
    EXPECT_GE(since.count(), 0) << "the call ended before the event was set";
    EXPECT_LT(since, kPromptly);
}

// The writing end of a FIFO, once a reader has it open; -1 after 20 s.
int OpenWriterWhenRead(const std::string& path) {
    const auto giveUp = Clock::now() + std::chrono::seconds(20);
    while (Clock::now() < giveUp) {
        const int fd = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd >= 0) {
            ::fcntl(fd, F_SETFL, 0);
            return fd;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return -1;
}

// 16-bit stereo at 44100 Hz: a WAV header that promises `seconds`.
std::string WavHeader(uint32_t seconds) {
    const uint32_t dataSize = seconds * 176400;
    std::string header = "RIFF";
    auto u32 = [&header](uint32_t v) {
        for (int i = 0; i < 4; ++i) header += static_cast<char>(v >> (8 * i));
    };
    auto u16 = [&header](uint16_t v) {
        header += static_cast<char>(v);
        header += static_cast<char>(v >> 8);
    };
    u32(36 + dataSize);
    header += "WAVEfmt ";
    u32(16);
    u16(1);
    u16(2);
    u32(44100);
    u32(176400);
    u16(4);
    u16(16);
    header += "data";
    u32(dataSize);
    return header;
}

std::string Tone(uint32_t frames) {
    std::string samples;
    for (uint32_t i = 0; i < frames; ++i) {
        const auto v = static_cast<int16_t>(8000 * std::sin(i * 0.0627));
        for (int channel = 0; channel < 2; ++channel) {
            samples += static_cast<char>(v & 0xFF);
            samples += static_cast<char>((v >> 8) & 0xFF);
        }
    }
    return samples;
}

TEST(Quit, EndsOpenBlockedOnASilentInput) {
    it::TempDir dir;
    const std::string input = dir.File("silent.wav");
    ASSERT_EQ(::mkfifo(input.c_str(), 0600), 0);   // nobody ever writes: the worker waits
    QuitFifo quit(dir.File("quit"));

    it::TestDecoder decoder;
    ASSERT_TRUE(decoder.SetQuitEvent(quit.Path()));
    DelayedSet set(quit, std::chrono::milliseconds(300));
    EXPECT_FALSE(decoder.Open(input, kOpenWantTags | kOpenWantInfo));
    ExpectEndedPromptlyAfter(set);
    EXPECT_EQ(decoder.ErrorLog(), "");

    const auto destroyStart = Clock::now();
    decoder.Destroy();
    EXPECT_LT(Clock::now() - destroyStart, std::chrono::milliseconds(1000)) << "Destroy doesn't wait for the worker";
    EXPECT_EQ(it::ChildrenAfter(0), 0);
}

TEST(Quit, EndsDecodeBlockBlockedOnAStalledInput) {
    it::TempDir dir;
    const std::string input = dir.File("stalled.wav");
    ASSERT_EQ(::mkfifo(input.c_str(), 0600), 0);
    QuitFifo quit(dir.File("quit"));
    // The worker goes before the feeder does: its writes must fail, not kill.
    std::signal(SIGPIPE, SIG_IGN);

    // The feeder gives a header that promises ten seconds and three seconds
    // of samples (the worker looks at more than one before it starts), then
    // goes quiet with the FIFO still open, so the worker waits for more.
    std::atomic<bool> fed{false};
    std::atomic<bool> release{false};
    std::thread feeder([&] {
        const int fd = OpenWriterWhenRead(input);
        if (fd < 0) return;
        const std::string bytes = WavHeader(10) + Tone(3 * 44100);
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
            if (n <= 0) break;
            done += static_cast<size_t>(n);
        }
        fed = true;
        while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ::close(fd);
    });

    it::TestDecoder decoder;
    ASSERT_TRUE(decoder.SetQuitEvent(quit.Path()));
    {
        DelayedSet set(quit, std::chrono::milliseconds(300), &fed);
        EXPECT_TRUE(decoder.Open(input, 0)) << decoder.ErrorLog();
        uint64_t bytes = 0;
        DecoderBlockInfo block{};
        while (decoder.DecodeBlock(block)) {
            EXPECT_EQ(+block.endOfStream, 0) << "the stream hasn't ended, it stalls";
            if (block.endOfStream) break;
            bytes += block.bytes;
        }
        EXPECT_TRUE(fed);
        ExpectEndedPromptlyAfter(set);
        EXPECT_LE(bytes, 3u * 176400);
    }
    EXPECT_EQ(decoder.ErrorLog(), "");

    EXPECT_TRUE(decoder.Close());
    release = true;
    feeder.join();
    EXPECT_EQ(it::ChildrenAfter(0), 0);
}

// A set event refuses work before it starts; reset, the run goes on with
// nothing lost.
TEST(Quit, AlreadySetRefusesAtOnceAndLosesNothing) {
    it::TempDir dir;
    const std::string path = dir.File("tone.flac");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1", "-ac", "2", path});
    const it::Wave64 reference = it::ReferenceDecode(dir, path);
    QuitFifo quit(dir.File("quit"));

    it::TestDecoder decoder;
    ASSERT_TRUE(decoder.SetQuitEvent(quit.Path()));
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
    EXPECT_TRUE(samples == reference.data);
    EXPECT_EQ(decoder.ErrorLog(), "");
}

// fdhost --quit-after-ms sets its own event: a decode that would wait for
// ever ends with the failure status.
TEST(Quit, FdhostQuitAfterMs) {
    it::TempDir dir;
    const std::string input = dir.File("silent.wav");
    ASSERT_EQ(::mkfifo(input.c_str(), 0600), 0);
    const auto start = Clock::now();
    const it::RunResult run =
        it::Fdhost({"decode", "--quiet", "--quit-after-ms", "200", input, "-o", dir.File("out.wav")});
    EXPECT_EQ(run.exitCode, 1);
    // The quit, then Close's grace time for a worker that can't notice.
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

}  // namespace
