// Image detection over hand-made bytes: the edges of each reader that no
// tool makes (cursors, zero sizes, chunk order, box order); what the tools
// make is in imagedetect_tools_test.cpp.

#include <gtest/gtest.h>

#include <string>

#include "image/imageinfo.h"
#include "transport/exceptions.h"

namespace {

std::string Be32(uint32_t v) {
    return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}
std::string Le16(uint32_t v) { return {static_cast<char>(v), static_cast<char>(v >> 8)}; }
std::string Be16(uint32_t v) { return {static_cast<char>(v >> 8), static_cast<char>(v)}; }
std::string Box(const char* type, const std::string& payload) {
    return Be32(static_cast<uint32_t>(payload.size() + 8)) + type + payload;
}
std::string Chunk(const char* type, const std::string& data) { return Be32(static_cast<uint32_t>(data.size())) + type + data + "crc!"; }

std::string Png(uint8_t colourType, const std::string& chunks) {
    const std::string ihdr = Be32(3) + Be32(2) + std::string{8, static_cast<char>(colourType), 0, 0, 0};
    return "\x89PNG\r\n\x1A\n" + Chunk("IHDR", ihdr) + chunks;
}

std::string IcoEntry(uint8_t width, uint8_t height, uint16_t bits, uint8_t reserved = 0) {
    return std::string{static_cast<char>(width), static_cast<char>(height), 0, static_cast<char>(reserved)} + Le16(1) +
           Le16(bits) + std::string(8, '\0');
}
std::string Ico(uint16_t type, const std::string& entries, uint16_t count) {
    return std::string(2, '\0') + Le16(type) + Le16(count) + entries;
}

std::string Iso(const std::string& beforeMeta, const std::string& properties) {
    const std::string meta = Box("meta", std::string(4, '\0') + Box("hdlr", "pict") +
                                             Box("iprp", Box("ipco", properties)));
    return Box("ftyp", "avifmiaf") + beforeMeta + meta;
}
std::string Ispe(uint32_t w, uint32_t h) { return Box("ispe", std::string(4, '\0') + Be32(w) + Be32(h)); }

// "NAME WxH dD" with " alpha", or "fail".
std::string Detect(const std::string& bytes) {
    try {
        MemoryImageSource source(bytes.data(), bytes.size());
        const ImageInfo info = DetectImageType(source);
        return std::string(info.name) + " " + std::to_string(info.width) + "x" + std::to_string(info.height) + " d" +
               std::to_string(info.depth) + (info.alpha ? " alpha" : "");
    } catch (const Qel::invalid_input&) {
        return "fail";
    }
}

}  // namespace

TEST(ImageDetect, HandMadeEdges) {
    std::string ico100, ico101;
    for (int i = 0; i < 101; ++i) (i < 100 ? ico100 : ico101) += IcoEntry(16, 16, 8);
    ico101 = ico100 + ico101;
    const struct {
        const char* what;
        std::string bytes;
        const char* expected;
    } cases[] = {
        {"empty", "", "fail"}, {"unknown start", "XY0123456789", "fail"},
        {"GX", "GX89a" + std::string(20, '\1'), "fail"},
        {"GIF with zero width", std::string("GIF89a") + Le16(0) + Le16(7) + std::string(10, '\0'), "fail"},
        {"ICO of 100 entries", Ico(1, ico100, 100), "ICO 16x16 d8 alpha"},
        {"ICO of 101 entries", Ico(1, ico101, 101), "fail"}, {"cursor", Ico(2, IcoEntry(16, 16, 8), 1), "fail"},
        {"ICO: larger but shallower", Ico(1, IcoEntry(16, 16, 32) + IcoEntry(48, 48, 8), 2), "ICO 16x16 d32 alpha"},
        {"ICO reserved byte", Ico(1, IcoEntry(16, 16, 8, 1), 1), "fail"},
        {"JPEG end before frame", "\xFF\xD8\xFF\xD9", "fail"},
        {"JPEG fill byte", "\xFF\xD8\xFF\xE0" + Be16(4) + "ab\xFF\xFF\xC0", "fail"},
        {"JPEG SOS before frame", "\xFF\xD8\xFF\xDA" + Be16(4) + "ab" + "\x12\x34", "fail"},
        {"PNG of RGB with tRNS before IDAT", Png(2, Chunk("tRNS", "ab") + Chunk("IDAT", "x")), "PNG 3x2 d24 alpha"},
        {"PNG tRNS behind IDAT", Png(2, Chunk("IDAT", "x") + Chunk("tRNS", "ab")), "PNG 3x2 d24"},
        {"PNG cut behind the header", Png(3, "\0\0"), "PNG 3x2 d8"},
        {"ISO with mdat first", Iso(Box("mdat", "data"), Ispe(4, 3) + Box("av1C", "x")), "fail"},
        {"ISO with av1C then hvcC", Iso("", Ispe(4, 3) + Box("av1C", "x") + Box("hvcC", "y")), "HEIC 4x3 d24"},
        {"ISO with hvcC then av1C", Iso("", Box("hvcC", "y") + Ispe(4, 3) + Box("av1C", "x")), "AVIF 4x3 d24"},
        {"ISO without codec", Iso("", Ispe(4, 3)), "fail"},
        {"ISO child larger than parent", Iso("", Be32(100) + "ispe"), "fail"},
        // small, height (1 + 1) x 8, ratio 1:1, all defaults
        {"JPEG XL all defaults", "\xFF\x0A\x43\x02", "JPEG XL 16x16 d24"},
        {"WebP of another chunk", "RIFF" + std::string(4, '\0') + "WEBPVP9 " + std::string(18, '\0'), "fail"},
    };
    for (const auto& c : cases) EXPECT_EQ(Detect(c.bytes), c.expected) << c.what;
}
