// The plug-in's border, driven as a host drives it: the built library loaded
// with dlopen and its entry points resolved by name.

#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/plugin.h"
#include "host/text.h"
#include "plugin_test_util.h"

namespace {

// ---- the dynamic symbol table, read from the ELF file itself

template <class T>
T ReadAt(const std::string& file, uint64_t offset) {
    if (offset > file.size() || file.size() - offset < sizeof(T)) {
        throw std::runtime_error("ELF structure runs past the end of the file");
    }
    T value;
    std::memcpy(&value, file.data() + offset, sizeof(T));
    return value;
}

std::string NameAt(const std::string& file, const Elf64_Shdr& strings, uint32_t offset) {
    if (offset >= strings.sh_size || strings.sh_offset > file.size() ||
        file.size() - strings.sh_offset < strings.sh_size) {
        throw std::runtime_error("symbol name outside its string table");
    }
    const std::string_view table(file.data() + strings.sh_offset, strings.sh_size);
    const size_t end = table.find('\0', offset);
    if (end == std::string_view::npos) throw std::runtime_error("unterminated symbol name");
    return std::string(table.substr(offset, end - offset));
}

// Names of the symbols that the library defines and lets others bind to.
std::set<std::string> ExportedSymbols(const std::string& path) {
    const std::string file = ReadFileBytes(path);
    const auto header = ReadAt<Elf64_Ehdr>(file, 0);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64) {
        throw std::runtime_error("not a 64-bit ELF file");
    }
    if (header.e_shentsize != sizeof(Elf64_Shdr)) throw std::runtime_error("odd section header size");
    auto section = [&](uint64_t index) {
        if (index >= header.e_shnum) throw std::runtime_error("section index out of range");
        return ReadAt<Elf64_Shdr>(file, header.e_shoff + index * sizeof(Elf64_Shdr));
    };
    std::set<std::string> names;
    for (uint64_t i = 0; i < header.e_shnum; ++i) {
        const Elf64_Shdr symbols = section(i);
        if (symbols.sh_type != SHT_DYNSYM) continue;
        if (symbols.sh_entsize != sizeof(Elf64_Sym)) throw std::runtime_error("odd symbol size");
        const Elf64_Shdr strings = section(symbols.sh_link);
        const uint64_t count = symbols.sh_size / sizeof(Elf64_Sym);
        for (uint64_t s = 1; s < count; ++s) {
            const auto symbol = ReadAt<Elf64_Sym>(file, symbols.sh_offset + s * sizeof(Elf64_Sym));
            if (symbol.st_shndx == SHN_UNDEF || ELF64_ST_BIND(symbol.st_info) == STB_LOCAL) continue;
            names.insert(NameAt(file, strings, symbol.st_name));
        }
    }
    return names;
}

TEST(PluginExports, OnlyTheNineEntryPointsAreExported) {
    const std::set<std::string> expected = {"Create", "Destroy",     "Get",         "Set",       "Open",
                                            "Close",  "DecodeBlock", "SetPosition", "DeleteATag"};
    EXPECT_EQ(ExportedSymbols(FD_PLUGIN_PATH), expected);
}

// ---- the entry points

class PluginTest : public ::testing::Test {
protected:
    host::Plugin plugin{FD_PLUGIN_PATH};
};

// One decoder with both logs going to files of a temporary folder.
class LoggedDecoder {
public:
    explicit LoggedDecoder(const host::Plugin& plugin)
        : trace_(CreateFile(dir_.File("trace.log"))), error_(CreateFile(dir_.File("error.log"))) {
        DecoderCreateInfo info{};
        info.errorLog = static_cast<uint64_t>(error_.Get());
        info.traceLog = static_cast<uint64_t>(trace_.Get());
        decoder_.emplace(plugin, info);
    }
    const host::Decoder& operator*() const { return *decoder_; }
    const host::Decoder* operator->() const { return &*decoder_; }
    std::string Trace() const { return ReadFileBytes(dir_.File("trace.log")); }
    std::string Errors() const { return ReadFileBytes(dir_.File("error.log")); }

private:
    TempDir dir_;
    Fd trace_;
    Fd error_;
    std::optional<host::Decoder> decoder_;
};

DecoderParam Patterned() {
    DecoderParam param;
    std::memset(&param, 0xA5, sizeof param);
    return param;
}

bool SameBytes(const DecoderParam& a, const DecoderParam& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

std::u16string Wide(std::string_view ascii) { return std::u16string(ascii.begin(), ascii.end()); }

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

TEST_F(PluginTest, DecodesTableRowsInOrderAndNothingPastTheEnd) {
    const host::Decoder decoder(plugin, DecoderCreateInfo{});
    for (uint32_t row = 0; row < kExpectedDecodes.size(); ++row) {
        DecoderParam param = Patterned();
        const DecoderParam before = param;
        param.index = row;
        ASSERT_EQ(decoder.Get(u"Decodes", param), 1) << "row " << row;
        EXPECT_EQ(host::WideView(param.text), Wide(kExpectedDecodes[row].extension)) << "row " << row;
        EXPECT_EQ(host::WideView(param.text2), Wide(kExpectedDecodes[row].description)) << "row " << row;
        // Only index (in), text and text2 (out) belong to this key.
        EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(&param) + 4, reinterpret_cast<const char*>(&before) + 4,
                              offsetof(DecoderParam, text) - 4),
                  0);
        EXPECT_EQ(std::memcmp(&param.untouched2, &before.untouched2, sizeof(param) - offsetof(DecoderParam, untouched2)),
                  0);
    }
    for (const uint32_t beyond : {19u, 20u, 0xFFFFFFFFu}) {
        DecoderParam param = Patterned();
        param.index = beyond;
        const DecoderParam before = param;
        EXPECT_EQ(decoder.Get(u"Decodes", param), 0);
        EXPECT_TRUE(SameBytes(param, before)) << "index " << beyond;
    }
}

TEST_F(PluginTest, StreamingTableAndDescription) {
    const host::Decoder decoder(plugin, DecoderCreateInfo{});
    for (uint32_t row = 0; row < kExpectedStreaming.size(); ++row) {
        DecoderParam param = Patterned();
        param.index = row;
        const DecoderParam before = param;
        ASSERT_EQ(decoder.Get(u"StreamingDecodes", param), 1);
        EXPECT_EQ(host::WideView(param.text), Wide(kExpectedStreaming[row]));
        EXPECT_EQ(std::memcmp(&param.text2, &before.text2, sizeof(param) - offsetof(DecoderParam, text2)), 0);
    }
    DecoderParam past = Patterned();
    past.index = 5;
    const DecoderParam before = past;
    EXPECT_EQ(decoder.Get(u"StreamingDecodes", past), 0);
    EXPECT_TRUE(SameBytes(past, before));

    DecoderParam description = Patterned();
    ASSERT_EQ(decoder.Get(u"Decoder Description", description), 1);
    EXPECT_EQ(host::WideView(description.text), u"FFmpeg Decoder");
}

TEST_F(PluginTest, ReturnedTextOutlivesTheDecoder) {
    DecoderParam param{};
    param.index = 18;
    {
        const host::Decoder decoder(plugin, DecoderCreateInfo{});
        ASSERT_EQ(decoder.Get(u"Decodes", param), 1);
    }
    const host::Decoder other(plugin, DecoderCreateInfo{});
    EXPECT_EQ(host::WideView(param.text), u".awb");
    EXPECT_EQ(host::WideView(param.text2), u"AMR");
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
    EXPECT_EQ(decoder.Set(u"eventquit", quit), 0);
    EXPECT_EQ(decoder.Set(u"EventQuit ", quit), 0);
    EXPECT_EQ(decoder.Set(u"Decodes", quit), 0);
    EXPECT_EQ(decoder.Get(nullptr, quit), 0);
    EXPECT_EQ(decoder.Set(nullptr, quit), 0);
    // A null name keeps whatever quit signal there was.
    EXPECT_EQ(decoder.Set(u"EventQuit", quit), 1);
}

TEST_F(PluginTest, CanWriteIDTagsByExtension) {
    const host::Decoder decoder(plugin, DecoderCreateInfo{});
    const std::pair<const char16_t*, int> cases[] = {
        {u"song.MKA", 1},          {u"/music/a.tak/noext", 0}, {u"noext", 0},
        {u"/x/a.TaK", 1},          {u"a.tta", 1},              {u"a.dts", 1},
        {u"a.DTSHD", 1},           {u"a.mkv", 1},              {u"a.webm", 1},
        {u"a.weba", 1},            {u"a.flac", 0},             {u"a.mka.flac", 0},
        {u"a.", 0},                {u"http://host/x.mka", 1},  {u"/music/\u00e9t\u00e9.tak", 1},
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

TEST_F(PluginTest, GetAndSetTraceTheirKeyInUtf16WithoutByteOrderMark) {
    const LoggedDecoder decoder(plugin);
    DecoderParam param{};
    ASSERT_EQ(decoder->Get(u"Decodes", param), 1);
    ASSERT_EQ(decoder->Get(u"NoSuchKey", param), 0);
    ASSERT_EQ(decoder->Set(u"EventQuit", param), 1);
    EXPECT_EQ(decoder.Trace(), Utf16Le("Decodes  [clDecoder_ffmpeg::Get]\r\n"
                                       "NoSuchKey  [clDecoder_ffmpeg::Get]\r\n"
                                       "EventQuit  [clDecoder_ffmpeg::Set]\r\n"));
    EXPECT_EQ(decoder.Errors(), "");
}

TEST_F(PluginTest, DeleteATagRefusesFilesWithoutTagEngine) {
    const LoggedDecoder decoder(plugin);
    EXPECT_EQ(decoder->DeleteATag(u"/music/song.flac", nullptr), 0);
    EXPECT_EQ(decoder->DeleteATag(nullptr, nullptr), 0);
    const std::string line = "Tagging not supported for this format.  [clDecoder_ffmpeg::DeleteATag]\r\n";
    EXPECT_EQ(decoder.Errors(), Utf16Le(line + line));
    EXPECT_EQ(decoder.Trace(), Utf16Le("*** Error: " + line + "*** Error: " + line));
}

TEST_F(PluginTest, IDTagsWithNegativeSizeIsRefused) {
    const LoggedDecoder decoder(plugin);
    DecoderParam param{};
    param.text = u"/nonexistent/song.tak";
    param.value = -1;
    const uint8_t blob[4] = {};
    param.data = blob;
    EXPECT_EQ(decoder->Set(u"IDTags", param), 0);
    EXPECT_NE(decoder.Errors(), "");
}

TEST_F(PluginTest, CreateWithoutLogsOrWithClosedLogs) {
    const host::Decoder noInfo(plugin, DecoderCreateInfo{});
    void* bare = plugin.Create(nullptr);
    ASSERT_NE(bare, nullptr);
    DecoderParam param{};
    EXPECT_EQ(plugin.Get(bare, u"Decoder Description", &param), 1);
    EXPECT_EQ(plugin.Destroy(bare), 1);

    const DecoderCreateInfo allOnes{~uint64_t{0}, ~uint64_t{0}, ~uint64_t{0}};
    const host::Decoder closed(plugin, allOnes);
    EXPECT_EQ(closed.Get(u"Decodes", param), 1);
    EXPECT_EQ(closed.DeleteATag(u"a.flac", nullptr), 0);
}

}  // namespace
