// The DLL under Wine, the replay worker standing in for ffmpeg: exact bytes,
// the worker's command line, the named quit event, the grace time, no leaks.

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <mutex>

#include "plugindriver.h"

namespace {

using Clock = std::chrono::steady_clock;

int64_t MsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// The recordings' folder as Windows sees it.
std::string Recordings() {
    std::string path = FD_RECORDINGS_DIR;
    std::replace(path.begin(), path.end(), '/', '\\');
    return "Z:" + path;
}

std::string Recording(const std::string& input, const std::string& start = {}) {
    const std::string name = start.empty() ? input : input + ".ss" + start;
    return it::ParseWave64(it::ReadFile(Recordings() + "\\" + name + ".w64")).data;
}

// A copy of the recorded input under `name` in `dir`, with a misbehaviour.
std::string Misbehaving(const it::TempDir& dir, const std::string& name, const std::string& mode) {
    std::string path = dir.Path() + "\\" + name;
    for (const char* suffix : {"", ".w64", ".err"}) {
        it::WriteFile(path + suffix, it::ReadFile(Recordings() + "\\sine.flac" + suffix));
    }
    it::WriteFile(path + ".mode", mode);
    return path;
}

// The host's side of a named quit event.
class HostQuitEvent {
public:
    explicit HostQuitEvent(const std::string& name)
        : name_(name), handle_(::CreateEventA(nullptr, TRUE, FALSE, name.c_str())) {}
    HostQuitEvent(const HostQuitEvent&) = delete;
    HostQuitEvent& operator=(const HostQuitEvent&) = delete;
    ~HostQuitEvent() { ::CloseHandle(handle_); }
    const std::string& Name() const { return name_; }
    void Reset() { ::ResetEvent(handle_); }
    // Sets the event 300 ms into `blocked`; how long that went on after it.
    int64_t MsPastSet(const std::function<void()>& blocked) {
        Clock::time_point setAt;
        std::thread setter([this, &setAt] {
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            setAt = Clock::now();
            ::SetEvent(handle_);
        });
        blocked();
        const Clock::time_point returned = Clock::now();
        setter.join();
        return std::chrono::duration_cast<std::chrono::milliseconds>(returned - setAt).count();
    }

private:
    std::string name_;
    HANDLE handle_;
};

TEST(Win32Plugin, DecodesRecordingsBitExactAndSeeksWithTheRightCommandLine) {
    for (const std::string input : {"sine.flac", "with blank.flac"}) {
        SCOPED_TRACE(input);
        const std::string path = Recordings() + "\\" + input;
        std::filesystem::remove(std::filesystem::u8path(path + ".cmdline"));
        it::TestDecoder decoder;
        ASSERT_TRUE(decoder.Open(path, 0)) << decoder.ErrorLog();
        EXPECT_EQ(it::U32At(it::FormatHead(decoder.Format()), 4), 44100u);   // the sample rate
        std::string samples;
        std::vector<DecoderBlockInfo> blocks;   // the recording's data chunk has its size
        ASSERT_TRUE(decoder.ReadToEnd(samples, &blocks));
        EXPECT_TRUE(samples == Recording(input)) << samples.size() << " bytes";
        EXPECT_EQ(blocks.back().endOfStream, 1) << "where the declared size is used up";

        ASSERT_TRUE(decoder.SetPosition(22050)) << decoder.ErrorLog();
        std::string tail;
        ASSERT_TRUE(decoder.ReadToEnd(tail));
        EXPECT_TRUE(tail == Recording(input, "0.5")) << tail.size() << " bytes";
        EXPECT_TRUE(decoder.Close());

        // The bare name first; a path with a blank in double quotes, others bare.
        const std::string quoted = input.find(' ') == std::string::npos ? path : "\"" + path + "\"";
        const std::string lines = it::ReadFile(path + ".cmdline");
        EXPECT_EQ(lines, "ffmpeg-lgpl.exe -i " + quoted + " -f w64 -\n" +
                             "ffmpeg-lgpl.exe -ss 0.5 -i " + quoted + " -f w64 -\n");
    }
}

TEST(Win32Plugin, FdhostExeTakesWideArgumentsAndDecodes) {
    // Arguments come from the wide command line and leave as UTF-8.
    const it::RunResult canTag = it::Fdhost({"--json", "can-tag", "C:\\m\\s\xC3\xA5ng \xE2\x82\xAC.tta"});
    EXPECT_EQ(canTag.exitCode, 0) << canTag.err;
    EXPECT_EQ(canTag.out, "{\"path\":\"C:\\\\m\\\\s\xC3\xA5ng \xE2\x82\xAC.tta\",\"value\":1,\"warnings\":[]}\n");

    it::TempDir dir;
    const std::string out = dir.Path() + "\\out.raw";
    const it::RunResult decode = it::Fdhost({"decode", Recordings() + "\\with blank.flac", "-o", out, "--raw"});
    EXPECT_EQ(decode.exitCode, 0) << decode.err;
    EXPECT_TRUE(it::ReadFile(out) == Recording("with blank.flac"));
}

TEST(Win32Plugin, MissingInputAndDeadWorkerAreReported) {
    it::TestDecoder missing;
    EXPECT_FALSE(missing.Open(Recordings() + "\\missing.flac", 0));
    EXPECT_NE(missing.ErrorLog().find("[clDecoder_ffmpeg::"), std::string::npos) << missing.ErrorLog();
    const it::RunResult info = it::Fdhost({"info", Recordings() + "\\missing.flac"});   // relayed, without the label
    EXPECT_EQ(info.err.find("fdhost: " + Recordings() + "\\missing.flac: Error opening file '"), 0u) << info.err;
    EXPECT_EQ(info.err.find("[clDecoder_ffmpeg::"), std::string::npos) << info.err;

    // A worker that dies mid-stream ends the stream early, as a short read.
    it::TempDir dir;
    it::TestDecoder decoder;
    ASSERT_TRUE(decoder.Open(Misbehaving(dir, "dies.flac", "die 100000"), 0)) << decoder.ErrorLog();
    std::string samples;
    ASSERT_TRUE(decoder.ReadToEnd(samples));
    EXPECT_LT(samples.size(), 100000u);
    EXPECT_TRUE(Recording("sine.flac").compare(0, samples.size(), samples) == 0);
}

TEST(Win32Plugin, QuitEventEndsBlockedOpenAndDecodeBlockWithin100Ms) {
    it::TempDir dir;
    HostQuitEvent quit("fd-win32-test-quit-" + std::to_string(::GetCurrentProcessId()));
    {
        it::TestDecoder decoder;
        ASSERT_TRUE(decoder.SetQuitEvent(quit.Name()));
        const std::string silent = Misbehaving(dir, "silent.flac", "stall 0");
        EXPECT_LT(quit.MsPastSet([&] { EXPECT_FALSE(decoder.Open(silent, 0)); }), 100);
        EXPECT_EQ(decoder.ErrorLog(), "");   // a quit is no error
    }
    quit.Reset();
    it::TestDecoder decoder;
    ASSERT_TRUE(decoder.SetQuitEvent(quit.Name()));
    ASSERT_TRUE(decoder.Open(Misbehaving(dir, "stalls.flac", "stall 20000"), 0)) << decoder.ErrorLog();
    DecoderBlockInfo block{};
    ASSERT_TRUE(decoder.DecodeBlock(block));
    EXPECT_EQ(block.bytes, 16384u);
    EXPECT_LT(quit.MsPastSet([&] { EXPECT_FALSE(decoder.DecodeBlock(block)); }), 100);
}

TEST(Win32Plugin, WorkerThatIgnoresItsClosedPipesIsTerminatedAfter2000Ms) {
    it::TempDir dir;
    it::TestDecoder decoder;
    ASSERT_TRUE(decoder.Open(Misbehaving(dir, "deaf.flac", "ignore"), 0)) << decoder.ErrorLog();
    // Stopped mid-stream: the worker's next write fails, and it carries on.
    DecoderBlockInfo block{};
    ASSERT_TRUE(decoder.DecodeBlock(block));
    const Clock::time_point start = Clock::now();
    EXPECT_TRUE(decoder.Close());
    const int64_t took = MsSince(start);
    EXPECT_GE(took, 1900);
    EXPECT_LT(took, 4000);
    EXPECT_EQ(it::ChildrenAfter(1000), 0);
}

// Two decoders side by side, `count` cycles each: a worker must not hold the
// other decoder's pipe ends, or that one's stream would never end. Gives one
// line per failed call: which call, the system's last error and what the
// decoder logged for it.
std::string CyclesSideBySide(const std::string& path, int count) {
    std::mutex mutex;
    std::string failures;
    auto cycles = [&](char side) {
        it::TestDecoder decoder;
        size_t logged = 0;
        auto check = [&](bool ok, const char* call, int cycle) {
            if (ok) return;
            const DWORD error = ::GetLastError();
            const std::string log = decoder.ErrorLog();
            const std::lock_guard<std::mutex> lock(mutex);
            failures += std::string(1, side) + " cycle " + std::to_string(cycle) + " " + call + " (GetLastError " +
                        std::to_string(error) + "): " + log.substr(std::min(logged, log.size())) + "\n";
            logged = log.size();
        };
        for (int i = 0; i < count; ++i) {
            check(decoder.Open(path, 0), "Open", i);
            check(decoder.SetPosition(22050), "SetPosition", i);
            check(decoder.Close(), "Close", i);
        }
    };
    std::thread other(cycles, 'b');
    cycles('a');
    other.join();
    return failures;
}

TEST(Win32Plugin, ManyCyclesLeaveNoHandleThreadOrProcess) {
    const std::string path = Recordings() + "\\sine.flac";
    // A few cycles first: the loader, the runtime and the system make their
    // lasting objects on first use.
    ASSERT_EQ(CyclesSideBySide(path, 2), "");
    const it::Resources before = it::CurrentResources();
    ASSERT_GT(before.descriptors, 0);
    EXPECT_EQ(CyclesSideBySide(path, 100), "");
    EXPECT_EQ(it::ChildrenAfter(2000), 0);
    const it::Resources after = it::CurrentResources();
    // Wine now and then keeps objects of its own after a run (two after a
    // start it lost and the worker made again); a handle lost per cycle would
    // show as 200 or more.
    EXPECT_LE(after.descriptors, before.descriptors + 4);
    EXPECT_GE(after.descriptors, before.descriptors - 1);
    EXPECT_EQ(after.threads, before.threads);
}

}  // namespace
