// fdhost's answer from the capability tables, on every platform. The
// install tree: fdhost_install_posix.cpp; everything else:
// tests/integration/fdhost_table_test.cpp.

#include <gtest/gtest.h>

#include "plugin_test_util.h"

namespace {

using it::Fdhost;

TEST(Fdhost, CapsListsTheTablesInOrder) {
    const it::RunResult json = Fdhost({"caps", "--json"});
    EXPECT_EQ(json.exitCode, 0) << json.err;
    EXPECT_EQ(json.out, ExpectedCapsJson());

    const it::RunResult text = Fdhost({"caps"});
    EXPECT_EQ(text.exitCode, 0) << text.err;
    EXPECT_EQ(text.out.substr(0, text.out.find('\n')), "FFmpeg Decoder");
    size_t at = 0;
    for (const auto& row : kExpectedDecodes) {
        at = text.out.find(std::string(row.extension) + " ", at);
        ASSERT_NE(at, std::string::npos) << row.extension << " missing or out of order";
    }
    for (const char* mime : kExpectedStreaming) EXPECT_NE(text.out.find(mime), std::string::npos) << mime;
}

}  // namespace
