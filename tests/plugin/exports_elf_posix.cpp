// The ELF library's dynamic symbol table holds exactly the nine entry points,
// as the system's nm reads it.

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "plugin_test_util.h"

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

}  // namespace
