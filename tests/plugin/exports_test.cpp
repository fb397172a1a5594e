// The plug-in's border as a host drives it, the library loaded at run time, and fdhost's view of the capability tables.
// The export table itself: binaries_posix.cpp, tests/win32/check_binaries.cmake.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "host/plugin.h"
#include "host/text.h"
#include "tests/integration/testkit.h"

namespace {

struct PluginTest : ::testing::Test { host::Plugin plugin{FD_PLUGIN_PATH}; };

const std::string kCapsJson = R"({"description":"FFmpeg Decoder","decodes":[[".tak","Tom's Audio Kompressor"],[".shn","Shorten"],)"
           R"([".ac3","AC-3"],[".eac3","E-AC-3"],[".mka","Matroska Audio"],[".weba","Web Audio"],[".vqf","TwinVQ"],)"
           R"([".dts","DTS"],[".dtshd","DTS-HD"],[".tta","True Audio"],[".mlp","MLP"],[".ts","MPEG-TS"],)"
           R"([".ra","Real Audio"],[".rm","Real Audio"],[".voc","Creative Voice"],[".au","AU/SND"],[".snd","AU/SND"],)"
           R"([".amr","AMR"],[".awb","AMR"]],"streaming":["application/vnd.apple.mpegurl","audio/mpegurl",)"
           R"("audio/x-mpegurl","application/mpegurl","application/x-mpegurl"],"warnings":[]})"
           "\n";

std::string Utf16Le(std::string_view ascii) {
    std::string bytes;
    for (const char c : ascii) bytes += std::string{c, '\0'};
    return bytes;
}

struct GetRow {
    const char16_t* key;
    uint32_t index;
    const char16_t* in;
    bool answered;
    const char16_t *text = nullptr, *text2 = nullptr;
    int value = -1;
};

// Get writes only its answer (text, for Decodes text2, for CanWriteIDTags
// value) and nothing on a refusal. Returns the last text answered.
DecoderParam ExpectRows(const host::Plugin& plugin, const std::vector<GetRow>& rows) {
    const host::Decoder decoder(plugin, DecoderCreateInfo{});
    DecoderParam last{};
    for (const GetRow& row : rows) {
        SCOPED_TRACE(testing::Message() << (row.key ? host::Utf16ToUtf8(row.key) : "null") << " " << row.index << " "
                                        << (row.in ? host::Utf16ToUtf8(row.in) : "null"));
        DecoderParam param;
        std::memset(&param, 0xA5, sizeof param);
        param.index = row.index;
        param.text = row.in;
        DecoderParam expected = param;
        EXPECT_EQ(decoder.Get(row.key, param), row.answered ? 1 : 0);
        if (row.text) { EXPECT_EQ(host::WideView(expected.text = param.text), row.text); }
        if (row.text2) { EXPECT_EQ(host::WideView(expected.text2 = param.text2), row.text2); }
        if (row.value >= 0) expected.value = row.value;
        EXPECT_EQ(std::memcmp(&param, &expected, sizeof param), 0);
        if (row.text) last = param;
    }
    return last;
}

// Keys match exactly, with case, and no row lies past the end.
TEST_F(PluginTest, GetAnswersOnlyItsKeysAndTouchesOnlyItsAnswer) {
    const DecoderParam last = ExpectRows(plugin, {
        {u"Decodes", 0, u"a.mka", true, u".tak", u"Tom's Audio Kompressor"}, {u"Decodes", 18, u"a", true, u".awb", u"AMR"},
        {u"StreamingDecodes", 4, u"a", true, u"application/x-mpegurl"}, {u"Decodes", 19, u"a", false},
        {u"Decodes", 0xFFFFFFFFu, u"a", false}, {u"StreamingDecodes", 5, u"a", false}, {u"decodes", 0, u"a", false},
        {u"Decodes ", 0, u"a", false}, {u" Decodes", 0, u"a", false}, {u"Decode", 0, u"a", false},
        {u"Decoder description", 0, u"a", false}, {u"canwriteidtags", 0, u"a.mka", false}, {u"", 0, u"a", false},
        {u"EventQuit", 0, u"a", false}, {nullptr, 0, u"a", false}, {u"CanWriteIDTags", 0, nullptr, false},
    });
    // The text handed out outlives the decoder.
    const host::Decoder other(plugin, DecoderCreateInfo{});
    EXPECT_EQ(host::WideView(last.text), u"application/x-mpegurl");
}

// The extension alone decides, without case; a URL has no tag family.
TEST_F(PluginTest, CanWriteIDTagsByExtension) {
    std::vector<GetRow> rows;
    for (const auto& [path, value] : std::initializer_list<std::pair<const char16_t*, int>>{
             {u"song.MKA", 1}, {u"/music/a.tak/noext", 0}, {u"noext", 0}, {u"/x/a.TaK", 1}, {u"a.tta", 1}, {u"a.dts", 1},
             {u"a.DTSHD", 1}, {u"a.mkv", 1}, {u"a.webm", 1}, {u"a.weba", 1}, {u"a.flac", 0}, {u"a.mka.flac", 0}, {u"a.", 0},
             {u"http://host/x.mka", 0}, {u"file:///x.tta", 0}, {u"/music/\u00e9t\u00e9.tak", 1}})
        rows.push_back({u"CanWriteIDTags", 0, path, true, nullptr, nullptr, value});
    ExpectRows(plugin, rows);
}

// What each export traces and refuses, in the host's two logs; missing and
// closed logs are no failure; every entry point refuses a null decoder.
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

    DecoderOpenInfo open{};
    DecoderBlockInfo block{};
    EXPECT_EQ((std::vector<int64_t>{plugin.Destroy(nullptr), plugin.Get(nullptr, u"Decodes", &param),
                                plugin.Set(nullptr, u"EventQuit", &param), plugin.Open(nullptr, &open), plugin.Close(nullptr),
                                plugin.DecodeBlock(nullptr, &block), plugin.SetPosition(nullptr, 0),
                                plugin.DeleteATag(nullptr, u"a.tak", nullptr)}),
              (std::vector<int64_t>{1, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(Fdhost, CapsListsTheTablesInOrder) {
    const it::RunResult json = it::Fdhost({"caps", "--json"});
    EXPECT_EQ(json.exitCode, 0) << json.err;
    EXPECT_EQ(json.out, kCapsJson);
}

}  // namespace
