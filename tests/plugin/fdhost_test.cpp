// fdhost run as a person or a script runs it: output, exit status and the
// log files it hands to the plug-in. The install tree: fdhost_install_posix.cpp.

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

TEST(Fdhost, CanTagAnswersByExtension) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"can-tag", "song.MKA"}, "1\n"},
        {{"can-tag", "/music/a.tak/noext"}, "0\n"},
        {{"--json", "can-tag", "song.MKA"}, "{\"path\":\"song.MKA\",\"value\":1}\n"},
        // Quotes, backslashes and control characters escaped; other text as UTF-8.
        {{"can-tag", "we\"ird\\\x01\t\xC3\xA9.tak", "--json"},
         "{\"path\":\"we\\\"ird\\\\\\u0001\\t\xC3\xA9.tak\",\"value\":1}\n"},
        // Four-byte UTF-8 survives UTF-16; a byte that is no UTF-8 becomes U+FFFD.
        {{"--json", "can-tag", "\xF0\x9F\x8E\xB5\xFF.mka"},
         "{\"path\":\"\xF0\x9F\x8E\xB5\xEF\xBF\xBD.mka\",\"value\":1}\n"},
    };
    for (const auto& [args, expected] : cases) {
        const it::RunResult result = Fdhost(args);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.out, expected) << args[1];
    }
}

TEST(Fdhost, UsageErrorsExitWithTwo) {
    const std::vector<std::vector<std::string>> wrong = {
        {}, {"no-such-command"}, {"can-tag"}, {"can-tag", "a.mka", "b.mka"}, {"caps", "extra"},
        {"caps", "--no-such-option"}, {"--no-such-option", "caps"}, {"caps", "--plugin"},
        {"caps", "--quit-after-ms", "soon"}, {"caps", "--quit-after-ms", "-5"},
    };
    for (const auto& args : wrong) {
        const it::RunResult result = Fdhost(args);
        std::string line;
        for (const std::string& arg : args) line += arg + " ";
        EXPECT_EQ(result.exitCode, 2) << line << ": " << result.err;
        EXPECT_EQ(result.out, "") << line;
        EXPECT_NE(result.err, "") << line;
    }
    EXPECT_EQ(Fdhost({"caps", "--quit-after-ms", "250"}).exitCode, 0);
    EXPECT_EQ(Fdhost({"--help"}).exitCode, 0);
}

TEST(Fdhost, LogFilesAreStartedAfreshAndMissingThingsFail) {
    TempDir dir;
    const std::string trace = dir.File("trace.log");
    const std::string errors = dir.File("error.log");
    WriteFile(trace, "old content of an earlier run");
    const it::RunResult result = Fdhost({"--trace-log", trace, "can-tag", "a.tak", "--error-log", errors});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(ReadFile(trace), Utf16Le("CanWriteIDTags  [clDecoder_ffmpeg::Get]\r\n"));
    EXPECT_EQ(ReadFile(errors), "");

    ASSERT_EQ(Fdhost({"caps", "--trace-log=" + trace}).exitCode, 0);
    const std::string log = ReadFile(trace);
    EXPECT_EQ(log.find(Utf16Le("CanWriteIDTags")), std::string::npos);
    EXPECT_NE(log.find(Utf16Le("Decodes  [clDecoder_ffmpeg::Get]\r\n")), std::string::npos);

    EXPECT_EQ(Fdhost({"caps", "--trace-log", dir.File("no/such/folder/t.log")}).exitCode, 1);
    // A missing plug-in is a failure, not a usage error.
    const it::RunResult absent = Fdhost({"caps", "--plugin", dir.File("absent.so")});
    EXPECT_EQ(absent.exitCode, 1);
    EXPECT_NE(absent.err.find("absent.so"), std::string::npos);
}

}  // namespace
