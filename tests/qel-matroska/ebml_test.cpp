// The EBML core: var-ints both ways, bounded reads, ranges, Void padding and
// the walk over children.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"
#include "ebmlbytes.h"

using namespace ebmltest;

namespace {

std::string Hex(const std::vector<uint8_t>& bytes) {
    const char* digits = "0123456789ABCDEF";
    std::string out;
    for (uint8_t b : bytes) out += std::string(out.empty() ? "" : " ") + digits[b >> 4] + digits[b & 15];
    return out;
}

std::string Encoded(uint64_t value) {
    EBML::StreamWritableSimple sink;
    EBML::WriteVarInt(sink, value);
    return Hex(sink.Take());
}

uint64_t SizeOf(const std::string& bytes) {
    EBML::StreamMem stream(bytes.data(), bytes.size());
    return EBML::ReadElementSize(stream);
}
uint32_t IdOf(const std::string& bytes) {
    EBML::StreamMem stream(bytes.data(), bytes.size());
    return EBML::ReadElementId(stream);
}

}  // namespace

TEST(Ebml, VarIntWriting) {
    const struct {
        uint64_t value;
        const char* hex;
    } cases[] = {{0, "80"},           {126, "FE"},          {127, "40 7F"},           {128, "40 80"},
                 {16383, "7F FF"},    {0x6C, "EC"},         {0x14D9B74, "11 4D 9B 74"}, {0x0A45DFA3, "1A 45 DF A3"},
                 {(uint64_t{1} << 56) - 1, "01 FF FF FF FF FF FF FF"}};
    for (const auto& c : cases) EXPECT_EQ(Encoded(c.value), c.hex) << c.value;
    EXPECT_THROW(Encoded(uint64_t{1} << 56), EBML::ParseError);

    uint8_t out[8] = {};
    EXPECT_FALSE(EBML::EncodeVarIntFixed(200, out, 1));
    EXPECT_FALSE(EBML::EncodeVarIntFixed(127, out, 1));
    EXPECT_FALSE(EBML::EncodeVarIntFixed(5, out, 0));
    ASSERT_TRUE(EBML::EncodeVarIntFixed(200, out, 8));
    EXPECT_EQ(Hex(std::vector<uint8_t>(out, out + 8)), "01 00 00 00 00 00 00 C8");
}

TEST(Ebml, SizesAndIdsReading) {
    EXPECT_EQ(SizeOf("\x7F\xFF"), 16383u);   // all ones in two bytes is a number
    EXPECT_EQ(SizeOf("\xFF"), EBML::kUnknownSize);
    EXPECT_EQ(SizeOf(std::string("\x01\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 8)), EBML::kUnknownSize);
    EXPECT_EQ(SizeOf(std::string("\x42\x00", 2)), 0x200u);
    EXPECT_THROW(SizeOf(std::string("\x00\x01", 2)), EBML::ParseError);
    EXPECT_THROW(SizeOf("\x40"), EBML::ParseError);   // cut off

    EXPECT_EQ(IdOf("\xEC"), 0x6Cu);
    EXPECT_EQ(IdOf("\x1A\x45\xDF\xA3"), 0x0A45DFA3u);
    EXPECT_THROW(IdOf("\x08\x01\x02\x03\x04"), EBML::ParseError);   // width 5

    const std::string ones(16, '\x01'), text("ab\0\0", 4), broken("a\0b", 3), control("a\x01", 2);
    EBML::StreamMem u(ones.data(), ones.size()), a(text.data(), text.size()), b(broken.data(), broken.size()),
        c(control.data(), control.size());
    EXPECT_THROW(EBML::ReadUInt(u, 0), EBML::ParseError);
    EXPECT_THROW(EBML::ReadUInt(u, 9), EBML::ParseError);
    EXPECT_EQ(EBML::ReadAscii(a, 4), text);   // trailing NULs kept; users take the C string
    EXPECT_THROW(EBML::ReadUtf8(b, 3), EBML::ParseError);
    EXPECT_THROW(EBML::ReadAscii(c, 2), EBML::ParseError);
}

TEST(Ebml, VoidsOfEverySize) {
    EXPECT_THROW(EBML::BuildVoid(1), EBML::ParseError);
    EXPECT_EQ(Hex(EBML::BuildVoid(2)), "EC 80");
    EXPECT_EQ(Hex(EBML::BuildVoid(8)), "EC 86 00 00 00 00 00 00");
    EXPECT_EQ(Hex(EBML::BuildVoid(9)), "EC 01 00 00 00 00 00 00 00");
    // Each Void reads back as one element of exactly its size.
    for (uint64_t size : {2u, 8u, 9u, 10u, 300u}) {
        const std::vector<uint8_t> bytes = EBML::BuildVoid(size);
        EBML::StreamMem stream(bytes.data(), bytes.size());
        EBML::ParserDummy dummy;
        dummy.RunOne(stream, EBML::kVoidId);
        EXPECT_EQ(stream.Tell(), size);
    }
}

TEST(Ebml, RangesBoundEveryRead) {
    const std::string bytes(32, 'x');
    EBML::StreamMem stream(bytes.data(), bytes.size());
    std::vector<uint8_t> buffer(64);
    EXPECT_THROW(EBML::BoundedRead(stream, buffer.data(), 33), EBML::ParseError);
    EBML::BoundedSkip(stream, 4);
    {
        EBML::ScopedRange range(stream, 100);   // more than the parent holds: clamped
        EXPECT_EQ(stream.m_range.begin, 4u);
        EXPECT_EQ(stream.m_range.end, 32u);
        EXPECT_THROW(EBML::NarrowRange(stream, EBML::kUnknownSize), EBML::ParseError);
    }
    {
        EBML::ScopedRange range(stream, 8);
        EXPECT_THROW(EBML::BoundedRead(stream, buffer.data(), 9), EBML::ParseError);
        EXPECT_THROW(EBML::SetRange(stream, EBML::Range{0, 8}), EBML::ParseError);
    }
    EXPECT_EQ(stream.m_range.end, 32u);
    // A size larger than the bytes there are fails before any allocation.
    EXPECT_THROW(EBML::ReadBinary(stream, uint64_t{1} << 60), EBML::ParseError);
}

TEST(Ebml, WalkOverChildren) {
    // A master that claims more than its parent holds is walked to the parent's end.
    const std::string bytes = ElSized(0x1234, VarInt(1000), UInt(0x81, 5) + UInt(0x82, 6));
    EBML::StreamMem stream(bytes.data(), bytes.size());
    std::vector<std::pair<uint32_t, uint64_t>> seen;
    EBML::ForEachChild(stream, [&](uint32_t id, uint64_t size, EBML::Stream& s) {
        EXPECT_EQ(id, 0x1234u);
        EBML::ForEachChild(s, [&](uint32_t child, uint64_t childSize, EBML::Stream& body) {
            seen.emplace_back(child, EBML::ReadUInt(body, childSize));
        });
        EXPECT_EQ(size, 1000u);
    });
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0], std::make_pair(0x81u, uint64_t{5}));
    EXPECT_EQ(seen[1], std::make_pair(0x82u, uint64_t{6}));
}

TEST(Ebml, HeaderVersionsAndMagic) {
    const struct {
        std::string body;
        bool ok;
    } cases[] = {
        {El(0x282, "webm") + UInt(0x285, 2) + UInt(0x2F7, 1), true}, {El(0x282, "webm") + UInt(0x285, 3), false},
        {El(0x282, "webm") + UInt(0x2F7, 2), false}, {El(0x282, "we\x01" "bm"), false},
    };
    for (const auto& c : cases) {
        EBML::StreamMem stream(c.body.data(), c.body.size());
        EBML::ParserEBML parser;
        std::string docType = "refused";
        try {
            parser.Run(stream);
            docType = parser.docType;
        } catch (const EBML::ParseError&) {
        }
        EXPECT_EQ(docType, c.ok ? "webm" : "refused") << c.body;
    }
}
