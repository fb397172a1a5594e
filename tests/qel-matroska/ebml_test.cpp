// The EBML core's var-ints, both ways, and the values read from element bodies.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"

namespace {

std::string Hex(const std::vector<uint8_t>& bytes) {
    std::string out;
    for (uint8_t b : bytes) out += std::string(out.empty() ? "" : " ") + "0123456789ABCDEF"[b >> 4] + "0123456789ABCDEF"[b & 15];
    return out;
}
std::string Encoded(uint64_t value) {
    EBML::StreamWritableSimple sink;
    EBML::WriteVarInt(sink, value);
    return Hex(sink.Take());
}
template <typename Read>
auto From(const std::string& bytes, Read read) {
    EBML::StreamMem stream(bytes.data(), bytes.size());
    return read(stream);
}
uint64_t SizeOf(const std::string& bytes) { return From(bytes, [](EBML::Stream& s) { return EBML::ReadElementSize(s); }); }

}  // namespace

TEST(Ebml, VarIntsBothWays) {
    const struct {
        uint64_t value;
        const char* hex;
    } cases[] = {{0, "80"}, {126, "FE"}, {127, "40 7F"}, {16383, "7F FF"}, {0x14D9B74, "11 4D 9B 74"},
                 {(uint64_t{1} << 56) - 1, "01 FF FF FF FF FF FF FF"}};
    for (const auto& c : cases) EXPECT_EQ(Encoded(c.value), c.hex) << c.value;
    EXPECT_THROW(Encoded(uint64_t{1} << 56), EBML::ParseError);
    uint8_t out[8] = {};
    EXPECT_FALSE(EBML::EncodeVarIntFixed(200, out, 1));
    EXPECT_FALSE(EBML::EncodeVarIntFixed(127, out, 1));   // all ones: unknown
    EXPECT_FALSE(EBML::EncodeVarIntFixed(5, out, 0));
    ASSERT_TRUE(EBML::EncodeVarIntFixed(200, out, 8));
    EXPECT_EQ(Hex(std::vector<uint8_t>(out, out + 8)), "01 00 00 00 00 00 00 C8");

    EXPECT_EQ(SizeOf("\x7F\xFF"), 16383u);   // all ones in two bytes is a number
    EXPECT_EQ(SizeOf("\xFF"), EBML::kUnknownSize);
    EXPECT_EQ(SizeOf(std::string("\x01\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 8)), EBML::kUnknownSize);
    EXPECT_EQ(SizeOf(std::string("\x42\x00", 2)), 0x200u);
    EXPECT_EQ(From("\x1A\x45\xDF\xA3", [](EBML::Stream& s) { return EBML::ReadElementId(s); }), 0x0A45DFA3u);
    EXPECT_EQ(From(std::string("ab\0\0", 4), [](EBML::Stream& s) { return EBML::ReadAscii(s, 4); }), std::string("ab\0\0", 4));
    EXPECT_THROW(From(std::string("a\0b", 3), [](EBML::Stream& s) { return EBML::ReadUtf8(s, 3); }), EBML::ParseError);
}
