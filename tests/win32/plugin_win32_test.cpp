// The DLL and fdhost.exe under Wine, the worker stand-in as ffmpeg-lgpl.exe:
// fdhost's wide command line, and decoders side by side leaking no handle,
// thread or process. (What both platforms share: tests/integration.)

#include <windows.h>

#include <gtest/gtest.h>

#include <mutex>

#include "plugindriver.h"
#include "tests/transport/pattern.h"

namespace {

TEST(Win32Plugin, FdhostExeTakesWideArgumentsAndDecodes) {
    // Arguments come from the wide command line and leave as UTF-8.
    const it::RunResult canTag = it::Fdhost({"--json", "can-tag", "C:\\m\\s\xC3\xA5ng \xE2\x82\xAC.tta"});
    EXPECT_EQ(canTag.exitCode, 0) << canTag.err;
    EXPECT_EQ(canTag.out, "{\"path\":\"C:\\\\m\\\\s\xC3\xA5ng \xE2\x82\xAC.tta\",\"value\":1,\"warnings\":[]}\n");

    it::TempDir dir;
    const std::string input = dir.Path() + "\\with blank", out = dir.Path() + "\\out.raw";
    it::WriteFile(input, "frames 30000\n");
    const it::RunResult decode = it::Fdhost({"decode", input, "-o", out, "--raw"});
    EXPECT_EQ(decode.exitCode, 0) << decode.err;
    const std::string samples = it::ReadFile(out);
    EXPECT_TRUE(samples.size() == 120000 && PatternMismatches(samples) == 0);
}

// Two decoders side by side, `count` cycles each: a worker must not inherit
// the other decoder's pipe ends, or that one's stream would never end. One
// line per failed call: which, the system's last error, what was logged.
std::string CyclesSideBySide(const std::string& path, int count) {
    std::mutex mutex;
    std::string failures;
    auto cycles = [&](char side) {
        it::TestDecoder decoder;
        auto check = [&](bool ok, const char* call, int cycle) {
            if (ok) return;
            const DWORD error = ::GetLastError();
            const std::lock_guard<std::mutex> lock(mutex);
            failures += std::string(1, side) + " cycle " + std::to_string(cycle) + " " + call + " (GetLastError " +
                        std::to_string(error) + "): " + decoder.ErrorLog() + "\n";
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
    it::TempDir dir;
    const std::string path = dir.Path() + "\\tone";
    it::WriteFile(path, "frames 30000\n");
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
