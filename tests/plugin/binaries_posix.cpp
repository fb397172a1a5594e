// The built binaries from outside on Linux: nm reads exactly the nine entry
// points; installed, bin/fdhost finds <libdir>/fdhost/plugins/ on its own, the
// worker link lies one folder above the plug-in, and a host's headers are there.

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "tests/integration/testkit.h"

namespace {

TEST(PluginExports, OnlyTheNineEntryPointsAreExported) {
    const it::RunResult nm = it::Run({"/usr/bin/nm", "-D", "--defined-only", FD_PLUGIN_PATH});
    ASSERT_EQ(nm.exitCode, 0) << nm.err;
    std::set<std::string> names;
    std::istringstream lines(nm.out);
    for (std::string address, type, name; lines >> address >> type >> name;) names.insert(name);
    EXPECT_EQ(names, (std::set<std::string>{"Create", "Destroy", "Get", "Set", "Open", "Close", "DecodeBlock",
                                            "SetPosition", "DeleteATag"}));
}

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
    EXPECT_EQ(caps.out, it::Fdhost({"caps", "--json"}).out) << "the build tree's answer (Fdhost.CapsListsTheTablesInOrder)";
}

}  // namespace
