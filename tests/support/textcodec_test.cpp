// The code-page converters, checked against the Unicode rules for ill-formed
// UTF-8 and the Windows-1252 table rather than against themselves.

#include <gtest/gtest.h>

#include <string>

#include "support/textcodec.h"

namespace {

std::string Bytes(std::initializer_list<int> values) {
    std::string out;
    for (int v : values) out.push_back(static_cast<char>(v));
    return out;
}

// Independent encoder for the round-trip check.
std::string ReferenceUtf8(char32_t cp) {
    if (cp < 0x80) return Bytes({static_cast<int>(cp)});
    if (cp < 0x800) return Bytes({0xC0 | static_cast<int>(cp >> 6), 0x80 | static_cast<int>(cp & 0x3F)});
    if (cp < 0x10000) {
        return Bytes({0xE0 | static_cast<int>(cp >> 12), 0x80 | static_cast<int>((cp >> 6) & 0x3F),
                      0x80 | static_cast<int>(cp & 0x3F)});
    }
    return Bytes({0xF0 | static_cast<int>(cp >> 18), 0x80 | static_cast<int>((cp >> 12) & 0x3F),
                  0x80 | static_cast<int>((cp >> 6) & 0x3F), 0x80 | static_cast<int>(cp & 0x3F)});
}

}  // namespace

TEST(TextCodec, EveryScalarValueRoundTripsThroughUtf8) {
    for (char32_t cp = 0; cp <= 0x10FFFF; ++cp) {
        if (cp >= 0xD800 && cp <= 0xDFFF) continue;
        const std::string utf8 = ReferenceUtf8(cp);
        const std::u16string wide = text::Utf8ToUtf16(utf8);
        if (cp < 0x10000) {
            ASSERT_EQ(wide, std::u16string(1, static_cast<char16_t>(cp))) << std::hex << static_cast<uint32_t>(cp);
        } else {
            ASSERT_EQ(wide.size(), 2u) << std::hex << static_cast<uint32_t>(cp);
            ASSERT_EQ(wide[0], 0xD800 + ((cp - 0x10000) >> 10)) << std::hex << static_cast<uint32_t>(cp);
            ASSERT_EQ(wide[1], 0xDC00 + ((cp - 0x10000) & 0x3FF)) << std::hex << static_cast<uint32_t>(cp);
        }
        ASSERT_EQ(text::Utf16ToUtf8(wide), utf8) << std::hex << static_cast<uint32_t>(cp);
    }
}

TEST(TextCodec, IllFormedUtf8GivesOneReplacementPerMaximalSubpart) {
    struct Case {
        std::string bytes;
        std::u16string expected;
    };
    const Case cases[] = {
        // The example of the Unicode standard (U+FFFD substitution of maximal subparts).
        {Bytes({0x61, 0xF1, 0x80, 0x80, 0xE1, 0x80, 0xC2, 0x62, 0x80, 0x63, 0x80, 0xBF, 0x64}),
         u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"},
        {Bytes({0xC0, 0xAF}), u"\uFFFD\uFFFD"},                          // overlong "/"
        {Bytes({0xE0, 0x80, 0xAF}), u"\uFFFD\uFFFD\uFFFD"},              // overlong, 3 bytes
        {Bytes({0xF0, 0x80, 0x80, 0xAF}), u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // overlong, 4 bytes
        {Bytes({0xED, 0xA0, 0x80}), u"\uFFFD\uFFFD\uFFFD"},              // encoded surrogate
        {Bytes({0xF4, 0x90, 0x80, 0x80}), u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
        {Bytes({0xF5, 0x41}), u"\uFFFDA"},
        {Bytes({0xE2, 0x82}), u"\uFFFD"},                                // truncated at the end
        {Bytes({0xE2, 0x82, 0x41}), u"\uFFFDA"},                         // truncated before ASCII
        {Bytes({0xF0, 0x9D, 0x84}), u"\uFFFD"},
        {Bytes({0x80, 0x80}), u"\uFFFD\uFFFD"},                          // stray continuations
        {Bytes({0xED, 0x9F, 0xBF}), u"\uD7FF"},                          // last before the surrogates
        {Bytes({0xF4, 0x8F, 0xBF, 0xBF}), u"\U0010FFFF"},
        {Bytes({0x41, 0x00, 0x42}), std::u16string(u"A\0B", 3)},         // NUL is a character
    };
    for (const Case& c : cases) EXPECT_EQ(text::Utf8ToUtf16(c.bytes), c.expected) << testing::PrintToString(c.bytes);
}

TEST(TextCodec, UnpairedSurrogatesBecomeReplacementInUtf8) {
    const std::string fffd = Bytes({0xEF, 0xBF, 0xBD});
    EXPECT_EQ(text::Utf16ToUtf8(std::u16string{0xD800, u'A'}), fffd + "A");
    EXPECT_EQ(text::Utf16ToUtf8(std::u16string{u'A', 0xDC00}), "A" + fffd);
    EXPECT_EQ(text::Utf16ToUtf8(std::u16string{0xD834}), fffd);
    EXPECT_EQ(text::Utf16ToUtf8(std::u16string{0xDD1E, 0xD834}), fffd + fffd);   // reversed pair
    EXPECT_EQ(text::Utf16ToUtf8(u"\U0001D11E"), Bytes({0xF0, 0x9D, 0x84, 0x9E}));
}

TEST(TextCodec, AnsiIsWindows1252) {
    const std::pair<int, char16_t> table[] = {
        {0x41, u'A'},     {0x80, 0x20AC}, {0x81, 0x0081}, {0x82, 0x201A}, {0x8A, 0x0160},
        {0x8D, 0x008D},   {0x8F, 0x008F}, {0x90, 0x0090}, {0x93, 0x201C}, {0x99, 0x2122},
        {0x9D, 0x009D},   {0x9F, 0x0178}, {0xA0, 0x00A0}, {0xE9, 0x00E9}, {0xFF, 0x00FF},
    };
    for (const auto& [byte, unit] : table) {
        EXPECT_EQ(text::AnsiToUtf16(Bytes({byte})), std::u16string(1, unit)) << std::hex << byte;
    }
    std::string all;
    for (int b = 0; b < 256; ++b) all.push_back(static_cast<char>(b));
    EXPECT_EQ(text::Utf16ToAnsi(text::AnsiToUtf16(all)), all);

    // Unmappable: one "?" per character, a surrogate pair included.
    EXPECT_EQ(text::Utf16ToAnsi(u"a\u0100b\u0080c\U0001D11Ed\u20AC"), "a?b?c?d\x80");
    EXPECT_EQ(text::Utf16ToAnsi(std::u16string{0xD800}), "?");
}

TEST(TextCodec, Latin1IsIso8859_1) {
    std::string all;
    for (int b = 0; b < 256; ++b) all.push_back(static_cast<char>(b));
    const std::u16string wide = text::Latin1ToUtf16(all);
    ASSERT_EQ(wide.size(), 256u);
    for (int b = 0; b < 256; ++b) EXPECT_EQ(wide[static_cast<size_t>(b)], static_cast<char16_t>(b));
    EXPECT_EQ(text::Utf16ToLatin1(wide), all);
    EXPECT_EQ(text::Utf16ToLatin1(u"\u20AC\u00FF\U0001D11E"), "?\xFF?");
}
