// The plug-in's border as a host drives it, the library loaded at run time.
// The export table itself: exports_elf_posix.cpp, tests/win32/check_binaries.cmake.

#include <gtest/gtest.h>

#include <cstring>
#include <optional>

#include "host/plugin.h"
#include "host/text.h"
#include "plugin_test_util.h"

namespace {

class PluginTest : public ::testing::Test {
protected:
    host::Plugin plugin{FD_PLUGIN_PATH};
};

// One decoder with both logs going to files of a temporary folder.
class LoggedDecoder {
public:
    explicit LoggedDecoder(const host::Plugin& plugin) {
        decoder_.emplace(plugin, DecoderCreateInfo{error_.Get(), 0, trace_.Get()});
    }
    const host::Decoder* operator->() const { return &*decoder_; }
    std::string Trace() const { return ReadFile(dir_.File("trace.log")); }
    std::string Errors() const { return ReadFile(dir_.File("error.log")); }

private:
    TempDir dir_;
    Fd trace_{dir_.File("trace.log")};
    Fd error_{dir_.File("error.log")};
    std::optional<host::Decoder> decoder_;
};

DecoderParam Patterned() {
    DecoderParam param;
    std::memset(&param, 0xA5, sizeof param);
    return param;
}

// The bytes of `a` and `b` from offset `from` to the end.
bool SameBytes(const DecoderParam& a, const DecoderParam& b, size_t from = 0) {
    return std::memcmp(reinterpret_cast<const char*>(&a) + from, reinterpret_cast<const char*>(&b) + from,
                       sizeof a - from) == 0;
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

TEST_F(PluginTest, TablesInOrderAndNothingPastTheEnd) {
    DecoderParam row18{};
    row18.index = 18;
    {
        const host::Decoder decoder(plugin, DecoderCreateInfo{});
        // Only index (in), text and, for Decodes, text2 (out) belong to these keys.
        const auto expectRow = [&](const char16_t* key, uint32_t row, const char* text, const char* text2) {
            SCOPED_TRACE(testing::Message() << host::Utf16ToUtf8(key) << " row " << row);
            DecoderParam param = Patterned();
            param.index = row;
            const DecoderParam before = param;
            ASSERT_EQ(decoder.Get(key, param), 1);
            EXPECT_EQ(host::WideView(param.text), host::Utf8ToUtf16(text));
            EXPECT_EQ(std::memcmp(&param, &before, offsetof(DecoderParam, text)), 0);
            if (text2) { EXPECT_EQ(host::WideView(param.text2), host::Utf8ToUtf16(text2)); }
            const size_t tail = text2 ? offsetof(DecoderParam, untouched2) : offsetof(DecoderParam, text2);
            EXPECT_TRUE(SameBytes(param, before, tail));
        };
        for (uint32_t row = 0; row < kExpectedDecodes.size(); ++row)
            expectRow(u"Decodes", row, kExpectedDecodes[row].extension, kExpectedDecodes[row].description);
        for (uint32_t row = 0; row < kExpectedStreaming.size(); ++row)
            expectRow(u"StreamingDecodes", row, kExpectedStreaming[row], nullptr);
        const std::pair<const char16_t*, uint32_t> beyond[] = {
            {u"Decodes", 19}, {u"Decodes", 20}, {u"Decodes", 0xFFFFFFFFu}, {u"StreamingDecodes", 5}};
        for (const auto& [key, index] : beyond) {
            DecoderParam param = Patterned();
            param.index = index;
            const DecoderParam before = param;
            EXPECT_EQ(decoder.Get(key, param), 0);
            EXPECT_TRUE(SameBytes(param, before)) << "index " << index;
        }
        ASSERT_EQ(decoder.Get(u"Decodes", row18), 1);
    }
    // The text handed out outlives the decoder.
    const host::Decoder other(plugin, DecoderCreateInfo{});
    EXPECT_EQ(host::WideView(row18.text), u".awb");
    EXPECT_EQ(host::WideView(row18.text2), u"AMR");
}

TEST_F(PluginTest, KeysMatchExactlyWithCase) {
    const host::Decoder decoder(plugin, DecoderCreateInfo{});
    for (const char16_t* key : {u"decodes", u"DECODES", u"Decode", u"Decodes ", u" Decodes", u"Decoder description",
                                u"canwriteidtags", u"", u"EventQuit"}) {
        DecoderParam param = Patterned();
        param.index = 0;
        param.text = u"a.mka";
        const DecoderParam before = param;
        EXPECT_EQ(decoder.Get(key, param), 0) << host::Utf16ToUtf8(key);
        EXPECT_TRUE(SameBytes(param, before));
    }
    DecoderParam quit{};
    for (const char16_t* key : {u"eventquit", u"EventQuit ", u"Decodes", static_cast<const char16_t*>(nullptr)}) {
        EXPECT_EQ(decoder.Set(key, quit), 0);
    }
    EXPECT_EQ(decoder.Get(nullptr, quit), 0);
    // A null name keeps whatever quit signal there was.
    EXPECT_EQ(decoder.Set(u"EventQuit", quit), 1);
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

TEST_F(PluginTest, LogsAreUtf16WithoutByteOrderMark) {
    const LoggedDecoder decoder(plugin);
    DecoderParam param{};
    ASSERT_EQ(decoder->Get(u"Decodes", param), 1);
    ASSERT_EQ(decoder->Get(u"NoSuchKey", param), 0);
    ASSERT_EQ(decoder->Set(u"EventQuit", param), 1);
    EXPECT_EQ(decoder.Errors(), "");
    // Tagging refused: an error line, echoed to the trace.
    EXPECT_EQ(decoder->DeleteATag(u"/music/song.flac", nullptr), 0);
    EXPECT_EQ(decoder->DeleteATag(nullptr, nullptr), 0);
    const std::string line = "Tagging not supported for this format.  [clDecoder_ffmpeg::DeleteATag]\r\n";
    EXPECT_EQ(decoder.Errors(), Utf16Le(line + line));
    EXPECT_EQ(decoder.Trace(), Utf16Le("Decodes  [clDecoder_ffmpeg::Get]\r\n"
                                       "NoSuchKey  [clDecoder_ffmpeg::Get]\r\n"
                                       "EventQuit  [clDecoder_ffmpeg::Set]\r\n"
                                       "*** Error: " + line + "*** Error: " + line));
}

TEST_F(PluginTest, BadInputsAndMissingOrClosedLogs) {
    {
        const LoggedDecoder decoder(plugin);
        DecoderParam param{};
        param.text = u"/nonexistent/song.tak";
        param.value = -1;   // a negative blob size
        const uint8_t blob[4] = {};
        param.data = blob;
        EXPECT_EQ(decoder->Set(u"IDTags", param), 0);
        EXPECT_NE(decoder.Errors(), "");
    }
    void* bare = plugin.Create(nullptr);
    ASSERT_NE(bare, nullptr);
    DecoderParam param{};
    EXPECT_EQ(plugin.Get(bare, u"Decoder Description", &param), 1);
    EXPECT_EQ(plugin.Destroy(bare), 1);

    const host::Decoder closed(plugin, DecoderCreateInfo{~uint64_t{0}, ~uint64_t{0}, ~uint64_t{0}});
    EXPECT_EQ(closed.Get(u"Decodes", param), 1);
    EXPECT_EQ(closed.DeleteATag(u"a.flac", nullptr), 0);
}

}  // namespace
