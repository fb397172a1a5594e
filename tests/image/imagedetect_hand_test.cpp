// Image detection over hand-made bytes: the edges of each reader that no
// tool makes (chunk order, box order, entry choice); what the tools make is in
// imagedetect_tools_test.cpp, what must be refused in fuzz/hostile/imagedetect_fuzz.

#include <gtest/gtest.h>

#include <string>

#include "image/imageinfo.h"
#include "transport/exceptions.h"

using namespace std::string_literals;

namespace {

std::string Be32(uint32_t v) {
    return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}
std::string Le16(uint32_t v) { return {static_cast<char>(v), static_cast<char>(v >> 8)}; }
std::string Box(const char* type, const std::string& payload) {
    return Be32(static_cast<uint32_t>(payload.size() + 8)) + type + payload;
}
std::string Chunk(const char* type, const std::string& data) { return Be32(static_cast<uint32_t>(data.size())) + type + data + "crc!"; }

std::string Png(uint8_t colourType, const std::string& chunks) {
    const std::string ihdr = Be32(3) + Be32(2) + std::string{8, static_cast<char>(colourType), 0, 0, 0};
    return "\x89PNG\r\n\x1A\n" + Chunk("IHDR", ihdr) + chunks;
}

std::string IcoEntry(uint8_t size, uint16_t bits) {
    return std::string{static_cast<char>(size), static_cast<char>(size), 0, 0} + Le16(1) + Le16(bits) + std::string(8, '\0');
}
std::string Ico(const std::string& entries, uint16_t count) { return std::string(2, '\0') + Le16(1) + Le16(count) + entries; }

std::string Iso(const std::string& properties) {
    return Box("ftyp", "avifmiaf") + Box("meta", std::string(4, '\0') + Box("hdlr", "pict") + Box("iprp", Box("ipco", properties)));
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
    std::string ico100;
    for (int i = 0; i < 100; ++i) ico100 += IcoEntry(16, 8);
    const struct { const char* what; std::string bytes; const char* expected; } cases[] = {
        {"empty", "", "fail"},
        {"ICO of 100 entries", Ico(ico100, 100), "ICO 16x16 d8 alpha"},
        {"ICO: larger but shallower", Ico(IcoEntry(16, 32) + IcoEntry(48, 8), 2), "ICO 16x16 d32 alpha"},
        {"PNG of RGB with tRNS before IDAT", Png(2, Chunk("tRNS", "ab") + Chunk("IDAT", "x")), "PNG 3x2 d24 alpha"},
        {"PNG tRNS behind IDAT", Png(2, Chunk("IDAT", "x") + Chunk("tRNS", "ab")), "PNG 3x2 d24"},
        {"PNG cut behind the header", Png(3, "\0\0"), "PNG 3x2 d8"},
        {"ISO with av1C then hvcC", Iso(Ispe(4, 3) + Box("av1C", "x") + Box("hvcC", "y")), "HEIC 4x3 d24"},
        {"ISO with hvcC then av1C", Iso(Box("hvcC", "y") + Ispe(4, 3) + Box("av1C", "x")), "AVIF 4x3 d24"},
        // small, height (1 + 1) x 8, ratio 1:1, all defaults
        {"JPEG XL all defaults", "\xFF\x0A\x43\x02", "JPEG XL 16x16 d24"},
        // height 2^30, ratio 16:9: the width must not wrap in 32 bits
        {"JPEG XL of the largest height", "\xFF\x0A\xFE\xFF\xFF\xFF\x1B", "JPEG XL 1908874353x1073741824 d24"},
        {"BMP stored top-down", "BM" + std::string(12, '\0') + "\x28\0\0\0\x25\0\0\0\xE9\xFF\xFF\xFF\1\0\x18\0"s, "BMP 37x23 d24"},
    };
    for (const auto& c : cases) EXPECT_EQ(Detect(c.bytes), c.expected) << c.what;
}
