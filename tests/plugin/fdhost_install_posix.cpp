// fdhost from the install tree (cmake --install, Linux layout).

#include <gtest/gtest.h>

#include <filesystem>

#include "plugin_test_util.h"

namespace {

// The install tree: bin/fdhost finds <libdir>/fdhost/plugins/ on its own, and
// the worker link lies one folder above the plug-in.
TEST(Fdhost, InstalledHostFindsItsPlugin) {
    TempDir prefix;
    const it::RunResult install = it::Run({FD_CMAKE_COMMAND, "--install", FD_BINARY_DIR, "--prefix", prefix.Path()});
    ASSERT_EQ(install.exitCode, 0) << install.out << install.err;
    const std::filesystem::path home = std::filesystem::path(prefix.Path()) / FD_INSTALL_LIBDIR / "fdhost";
    EXPECT_TRUE(std::filesystem::is_regular_file(home / "plugins" / "ffmpeg_decoder.so"));
    const std::filesystem::path headers = std::filesystem::path(prefix.Path()) / "include/ffmpeg_decoder/codecs/decoders/ffmpeg";
    EXPECT_TRUE(std::filesystem::is_regular_file(headers / "exports.h") && std::filesystem::is_regular_file(headers / "records.h"));
    if (std::string(FD_FFMPEG_PATH).size() > 0) {
        ASSERT_TRUE(std::filesystem::is_symlink(home / "ffmpeg-lgpl"));
        EXPECT_EQ(std::filesystem::read_symlink(home / "ffmpeg-lgpl"), FD_FFMPEG_PATH);
    }
    const it::RunResult caps = it::Run({prefix.Path() + "/bin/fdhost", "caps", "--json"});
    EXPECT_EQ(caps.exitCode, 0) << caps.err;
    EXPECT_EQ(caps.out, ExpectedCapsJson());
}

}  // namespace
