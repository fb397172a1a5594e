// fdhost from the install tree (cmake --install, Linux layout): bin/fdhost
// finds <libdir>/fdhost/plugins/ on its own, the worker link lies one folder
// above the plug-in, and the headers a host needs are there.

#include <gtest/gtest.h>

#include <filesystem>

#include "plugin_test_util.h"

namespace {

TEST(Fdhost, InstalledHostFindsItsPlugin) {
    namespace fs = std::filesystem;
    const it::TempDir prefix;
    const it::RunResult install = it::Run({FD_CMAKE_COMMAND, "--install", FD_BINARY_DIR, "--prefix", prefix.Path()});
    ASSERT_EQ(install.exitCode, 0) << install.out << install.err;
    const fs::path home = fs::path(prefix.Path()) / FD_INSTALL_LIBDIR / "fdhost";
    const fs::path headers = fs::path(prefix.Path()) / "include/ffmpeg_decoder/codecs/decoders/ffmpeg";
    EXPECT_TRUE(fs::is_regular_file(headers / "exports.h") && fs::is_regular_file(headers / "records.h"));
    EXPECT_EQ(fs::read_symlink(home / "ffmpeg-lgpl"), FD_FFMPEG_PATH);
    const it::RunResult caps = it::Run({prefix.Path() + "/bin/fdhost", "caps", "--json"});
    EXPECT_EQ(caps.exitCode, 0) << caps.err;
    EXPECT_EQ(caps.out, ExpectedCapsJson());
}

}  // namespace
