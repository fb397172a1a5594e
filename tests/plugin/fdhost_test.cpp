// fdhost run as a person or a script runs it: the built binary, its output,
// its exit status and the log files it hands to the plug-in.

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>
#include <vector>

#include "plugin_test_util.h"

extern char** environ;

namespace {

struct RunResult {
    int status = -1;       // exit status, or -1 when it did not exit normally
    std::string out;
    std::string err;
};

RunResult RunProgram(const std::string& program, const std::vector<std::string>& args) {
    TempDir dir;
    const std::string outPath = dir.File("out");
    const std::string errPath = dir.File("err");
    std::vector<std::string> all = {program};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& arg : all) argv.push_back(arg.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    RunResult result;
    if (spawned != 0) return result;
    int wstatus = 0;
    while (waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(wstatus)) result.status = WEXITSTATUS(wstatus);
    result.out = ReadFileBytes(outPath);
    result.err = ReadFileBytes(errPath);
    return result;
}

RunResult Host(const std::vector<std::string>& args) { return RunProgram(FD_HOST_PATH, args); }

// The JSON that caps must print, built from the capability tables.
std::string ExpectedCapsJson() {
    std::string json = R"({"description":"FFmpeg Decoder","decodes":[)";
    for (size_t i = 0; i < kExpectedDecodes.size(); ++i) {
        if (i > 0) json += ',';
        json += std::string("[\"") + kExpectedDecodes[i].extension + "\",\"" + kExpectedDecodes[i].description + "\"]";
    }
    json += R"(],"streaming":[)";
    for (size_t i = 0; i < kExpectedStreaming.size(); ++i) {
        if (i > 0) json += ',';
        json += std::string("\"") + kExpectedStreaming[i] + "\"";
    }
    return json + "]}\n";
}

TEST(Fdhost, CapsListsTheTablesInOrder) {
    const RunResult json = Host({"caps", "--json"});
    EXPECT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(json.out, ExpectedCapsJson());

    const RunResult text = Host({"caps"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out.substr(0, text.out.find('\n')), "FFmpeg Decoder");
    size_t at = 0;
    for (const auto& row : kExpectedDecodes) {
        at = text.out.find(std::string(row.extension) + " ", at);
        ASSERT_NE(at, std::string::npos) << row.extension << " missing or out of order";
    }
    for (const char* mime : kExpectedStreaming) EXPECT_NE(text.out.find(mime), std::string::npos) << mime;
}

TEST(Fdhost, CanTagAnswersByExtension) {
    const RunResult mka = Host({"can-tag", "song.MKA"});
    EXPECT_EQ(mka.status, 0) << mka.err;
    EXPECT_EQ(mka.out, "1\n");

    const RunResult folderDot = Host({"can-tag", "/music/a.tak/noext"});
    EXPECT_EQ(folderDot.status, 0) << folderDot.err;
    EXPECT_EQ(folderDot.out, "0\n");

    const RunResult json = Host({"--json", "can-tag", "song.MKA"});
    EXPECT_EQ(json.out, "{\"path\":\"song.MKA\",\"value\":1}\n");

    // Quotes, backslashes and control characters escaped; other text as UTF-8.
    const RunResult odd = Host({"can-tag", "we\"ird\\\x01\t\xC3\xA9.tak", "--json"});
    EXPECT_EQ(odd.status, 0) << odd.err;
    EXPECT_EQ(odd.out, "{\"path\":\"we\\\"ird\\\\\\u0001\\t\xC3\xA9.tak\",\"value\":1}\n");

    // Four-byte UTF-8 survives the trip through UTF-16; a byte that is no
    // UTF-8 comes out as U+FFFD, so the JSON stays valid.
    const RunResult wide = Host({"--json", "can-tag", "\xF0\x9F\x8E\xB5\xFF.mka"});
    EXPECT_EQ(wide.status, 0) << wide.err;
    EXPECT_EQ(wide.out, "{\"path\":\"\xF0\x9F\x8E\xB5\xEF\xBF\xBD.mka\",\"value\":1}\n");
}

TEST(Fdhost, UsageErrorsExitWithTwo) {
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"no-such-command"},
        {"can-tag"},
        {"can-tag", "a.mka", "b.mka"},
        {"caps", "extra"},
        {"caps", "--no-such-option"},
        {"--no-such-option", "caps"},
        {"caps", "--plugin"},
        {"caps", "--quit-after-ms", "soon"},
        {"caps", "--quit-after-ms", "-5"},
    };
    for (const auto& args : wrong) {
        const RunResult result = Host(args);
        std::string line;
        for (const std::string& arg : args) line += arg + " ";
        EXPECT_EQ(result.status, 2) << line;
        EXPECT_EQ(result.out, "") << line;
        EXPECT_NE(result.err, "") << line;
    }
    EXPECT_EQ(Host({"caps", "--quit-after-ms", "250"}).status, 0);
}

TEST(Fdhost, HelpListsEveryCommand) {
    const RunResult help = Host({"--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* command : {"caps", "can-tag", "info", "tags", "decode", "write", "delete"}) {
        EXPECT_NE(help.out.find(std::string("  ") + command + " "), std::string::npos) << command;
    }
    const RunResult commandHelp = Host({"can-tag", "--help"});
    EXPECT_EQ(commandHelp.status, 0);
    EXPECT_NE(commandHelp.out.find("can-tag PATH"), std::string::npos);
}

TEST(Fdhost, LogFilesAreStartedAfreshAndGetThePluginsLines) {
    TempDir dir;
    const std::string trace = dir.File("trace.log");
    const std::string errors = dir.File("error.log");
    WriteFileBytes(trace, "old content of an earlier run");
    const RunResult result = Host({"--trace-log", trace, "can-tag", "a.tak", "--error-log", errors});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadFileBytes(trace), Utf16Le("CanWriteIDTags  [clDecoder_ffmpeg::Get]\r\n"));
    EXPECT_EQ(ReadFileBytes(errors), "");

    const RunResult caps = Host({"caps", "--trace-log=" + trace});
    ASSERT_EQ(caps.status, 0) << caps.err;
    const std::string log = ReadFileBytes(trace);
    EXPECT_EQ(log.find(Utf16Le("CanWriteIDTags")), std::string::npos);
    EXPECT_NE(log.find(Utf16Le("Decodes  [clDecoder_ffmpeg::Get]\r\n")), std::string::npos);

    const RunResult unwritable = Host({"caps", "--trace-log", dir.File("no/such/folder/t.log")});
    EXPECT_EQ(unwritable.status, 1);
}

TEST(Fdhost, MissingPluginIsAFailureNotAUsageError) {
    TempDir dir;
    const RunResult result = Host({"caps", "--plugin", dir.File("absent.so")});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("absent.so"), std::string::npos);
}

// The install tree: bin/fdhost finds <libdir>/fdhost/plugins/ on its own, and
// the worker link lies one folder above the plug-in.
TEST(Fdhost, InstalledHostFindsItsPlugin) {
    TempDir prefix;
    const RunResult install =
        RunProgram(FD_CMAKE_COMMAND, {"--install", FD_BINARY_DIR, "--prefix", prefix.Path().string()});
    ASSERT_EQ(install.status, 0) << install.out << install.err;
    const std::filesystem::path home = prefix.Path() / FD_INSTALL_LIBDIR / "fdhost";
    EXPECT_TRUE(std::filesystem::is_regular_file(home / "plugins" / "ffmpeg_decoder.so"));
    if (std::string(FD_FFMPEG_PATH).size() > 0) {
        ASSERT_TRUE(std::filesystem::is_symlink(home / "ffmpeg-lgpl"));
        EXPECT_EQ(std::filesystem::read_symlink(home / "ffmpeg-lgpl"), FD_FFMPEG_PATH);
    }
    const RunResult caps = RunProgram((prefix.Path() / "bin" / "fdhost").string(), {"caps", "--json"});
    EXPECT_EQ(caps.status, 0) << caps.err;
    EXPECT_EQ(caps.out, ExpectedCapsJson());
}

}  // namespace
