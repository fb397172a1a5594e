// The plug-in's border as a host drives it, the library loaded at run time,
// and fdhost's view of the capability tables. The export table itself:
// exports_elf_posix.cpp, tests/win32/check_binaries.cmake.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <optional>
#include <thread>

#include "host/plugin.h"
#include "host/text.h"
#include "plugin_test_util.h"

namespace {

class PluginTest : public ::testing::Test {
protected:
    host::Plugin plugin{FD_PLUGIN_PATH};
};

DecoderParam Patterned() {
    DecoderParam param;
    std::memset(&param, 0xA5, sizeof param);
    return param;
}

// The bytes of `a` and `b` in [from, to).
bool SameBytes(const DecoderParam& a, const DecoderParam& b, size_t from = 0, size_t to = sizeof(DecoderParam)) {
    return std::memcmp(reinterpret_cast<const char*>(&a) + from, reinterpret_cast<const char*>(&b) + from, to - from) == 0;
}

std::string Utf16Le(std::string_view ascii) {
    std::string bytes;
    for (const char c : ascii) bytes += std::string{c, '\0'};
    return bytes;
}

TEST_F(PluginTest, NullDecoderIsRefusedByEveryEntryPoint) {
    DecoderParam param{};
    DecoderOpenInfo open{};
    DecoderBlockInfo block{};
    EXPECT_EQ(plugin.Destroy(nullptr), 1);
    EXPECT_EQ(plugin.Get(nullptr, u"Decodes", &param), 0);
    EXPECT_EQ(plugin.Set(nullptr, u"EventQuit", &param), 0);
    EXPECT_EQ(plugin.Open(nullptr, &open), 0);
    EXPECT_EQ(plugin.Close(nullptr), 0);
    EXPECT_EQ(plugin.DecodeBlock(nullptr, &block), 0);
    EXPECT_EQ(plugin.SetPosition(nullptr, 0), 0);
    EXPECT_EQ(plugin.DeleteATag(nullptr, u"a.tak", nullptr), 0);
}

// Get writes only its answer (text, and for Decodes text2) and nothing on a
// refusal: keys match exactly, with case, and no row lies past the end.
TEST_F(PluginTest, GetAnswersOnlyItsKeysAndTouchesOnlyItsAnswer) {
    const struct {
        const char16_t* key;
        uint32_t index;
        const char16_t* text;   // nullptr: refused
        const char16_t* text2;
    } rows[] = {
        {u"Decodes", 0, u".tak", u"Tom's Audio Kompressor"}, {u"Decodes", 18, u".awb", u"AMR"},
        {u"StreamingDecodes", 4, u"application/x-mpegurl", nullptr}, {u"Decodes", 19, nullptr, nullptr},
        {u"Decodes", 0xFFFFFFFFu, nullptr, nullptr}, {u"StreamingDecodes", 5, nullptr, nullptr},
        {u"decodes", 0, nullptr, nullptr}, {u"Decodes ", 0, nullptr, nullptr}, {u" Decodes", 0, nullptr, nullptr},
        {u"Decode", 0, nullptr, nullptr}, {u"Decoder description", 0, nullptr, nullptr},
        {u"canwriteidtags", 0, nullptr, nullptr}, {u"", 0, nullptr, nullptr}, {u"EventQuit", 0, nullptr, nullptr},
    };
    DecoderParam last{};
    {
        const host::Decoder decoder(plugin, DecoderCreateInfo{});
        for (const auto& row : rows) {
            SCOPED_TRACE(testing::Message() << host::Utf16ToUtf8(row.key) << " row " << row.index);
            DecoderParam param = Patterned();
            param.index = row.index;
            param.text = u"a.mka";
            const DecoderParam before = param;
            ASSERT_EQ(decoder.Get(row.key, param), row.text ? 1 : 0);
            if (!row.text) {
                EXPECT_TRUE(SameBytes(param, before));
                continue;
            }
            EXPECT_EQ(host::WideView(param.text), row.text);
            EXPECT_TRUE(SameBytes(param, before, 0, offsetof(DecoderParam, text)));
            if (row.text2) { EXPECT_EQ(host::WideView(param.text2), row.text2); }
            EXPECT_TRUE(SameBytes(param, before, row.text2 ? offsetof(DecoderParam, untouched2) : offsetof(DecoderParam, text2)));
            last = param;
        }
        DecoderParam none{};
        EXPECT_EQ(decoder.Get(nullptr, none), 0);
    }
    // The text handed out outlives the decoder.
    const host::Decoder other(plugin, DecoderCreateInfo{});
    EXPECT_EQ(host::WideView(last.text), u"application/x-mpegurl");
}

TEST_F(PluginTest, CanWriteIDTagsByExtension) {
    const host::Decoder decoder(plugin, DecoderCreateInfo{});
    const std::pair<const char16_t*, int> cases[] = {
        {u"song.MKA", 1}, {u"/music/a.tak/noext", 0}, {u"noext", 0},  {u"/x/a.TaK", 1},     {u"a.tta", 1},
        {u"a.dts", 1},    {u"a.DTSHD", 1},            {u"a.mkv", 1},  {u"a.webm", 1},       {u"a.weba", 1},
        {u"a.flac", 0},   {u"a.mka.flac", 0},         {u"a.", 0},     {u"http://host/x.mka", 0},
        {u"file:///x.tta", 0}, {u"/music/\u00e9t\u00e9.tak", 1},
    };
    for (const auto& [path, expected] : cases) {
        DecoderParam param = Patterned();
        param.text = path;
        ASSERT_EQ(decoder.Get(u"CanWriteIDTags", param), 1) << host::Utf16ToUtf8(path);
        EXPECT_EQ(param.value, expected) << host::Utf16ToUtf8(path);
    }
    DecoderParam none = Patterned();
    none.text = nullptr;
    const DecoderParam before = none;
    EXPECT_EQ(decoder.Get(u"CanWriteIDTags", none), 0);
    EXPECT_TRUE(SameBytes(none, before));
}

// What each export traces and refuses, in the host's two logs; missing and
// closed logs are no failure.
TEST_F(PluginTest, TracesRefusalsAndMissingOrClosedLogs) {
    const it::TempDir dir;
    {
        const it::SinkFile errors(dir.File("error.log")), trace(dir.File("trace.log"));
        const host::Decoder decoder(plugin, DecoderCreateInfo{errors.Get(), 0, trace.Get()});
        DecoderParam param{};
        ASSERT_EQ(decoder.Get(u"Decodes", param), 1);
        ASSERT_EQ(decoder.Get(u"NoSuchKey", param), 0);
        EXPECT_EQ(decoder.Set(u"EventQuit", param), 1) << "a null name keeps whatever quit signal there was";
        EXPECT_EQ(decoder.DeleteATag(u"/music/song.flac", nullptr), 0);
        EXPECT_EQ(decoder.DeleteATag(nullptr, nullptr), 0);
        const uint8_t blob[4] = {};
        param = DecoderParam{};
        param.text = u"/nonexistent/song.tak";
        param.value = -1;   // a negative blob size
        param.data = blob;
        EXPECT_EQ(decoder.Set(u"IDTags", param), 0);
    }
    const std::string refused = "Tagging not supported for this format.  [clDecoder_ffmpeg::DeleteATag]\r\n";
    const std::string size = "Invalid tag data size.  [clDecoder_ffmpeg::Set]\r\n";
    EXPECT_EQ(it::ReadFile(dir.File("error.log")), Utf16Le(refused + refused + size));
    EXPECT_EQ(it::ReadFile(dir.File("trace.log")),
              Utf16Le("Decodes  [clDecoder_ffmpeg::Get]\r\nNoSuchKey  [clDecoder_ffmpeg::Get]\r\n"
                      "EventQuit  [clDecoder_ffmpeg::Set]\r\n*** Error: " + refused + "*** Error: " + refused +
                      "IDTags  [clDecoder_ffmpeg::Set]\r\n*** Error: " + size));

    void* bare = plugin.Create(nullptr);
    ASSERT_NE(bare, nullptr);
    DecoderParam param{};
    EXPECT_EQ(plugin.Get(bare, u"Decoder Description", &param), 1);
    EXPECT_EQ(plugin.Destroy(bare), 1);
    const host::Decoder closed(plugin, DecoderCreateInfo{~uint64_t{0}, ~uint64_t{0}, ~uint64_t{0}});
    EXPECT_EQ(closed.Get(u"Decodes", param), 1);
    EXPECT_EQ(closed.DeleteATag(u"a.flac", nullptr), 0);
    for (const char16_t* key : {u"eventquit", u"EventQuit ", u"Decodes", static_cast<const char16_t*>(nullptr)})
        EXPECT_EQ(closed.Set(key, param), 0);
}

// Decoders in several threads share the tables and one trace log.
TEST_F(PluginTest, ConcurrentDecodersAnswerRight) {
    constexpr int kThreads = 4, kRounds = 200;
    const it::TempDir dir;
    const it::SinkFile trace(dir.File("trace.log"));
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const host::Decoder decoder(plugin, DecoderCreateInfo{0, 0, trace.Get()});
            for (int round = 0; round < kRounds; ++round) {
                DecoderParam param{};
                param.index = static_cast<uint32_t>(round + t) % 2 * 18;
                wrong += decoder.Get(u"Decodes", param) != 1 || host::WideView(param.text) != (param.index ? u".awb" : u".tak");
                param.text = u"x.MKV";
                wrong += decoder.Get(u"CanWriteIDTags", param) != 1 || param.value != 1;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST(Fdhost, CapsListsTheTablesInOrder) {
    const it::RunResult json = it::Fdhost({"caps", "--json"});
    EXPECT_EQ(json.exitCode, 0) << json.err;
    EXPECT_EQ(json.out, ExpectedCapsJson());
    const it::RunResult text = it::Fdhost({"caps"});
    EXPECT_EQ(text.exitCode, 0) << text.err;
    EXPECT_EQ(text.out.rfind("FFmpeg Decoder\n\nDecodes:\n  .tak     Tom's Audio Kompressor\n  .shn", 0), 0u) << text.out;
    EXPECT_NE(text.out.find("  .amr     AMR\n  .awb     AMR\n\nStreams:\n  application/vnd.apple.mpegurl\n"),
              std::string::npos) << text.out;
}

}  // namespace
