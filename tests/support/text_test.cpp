// The text support: the code-page converters (checked against the Unicode
// rules for ill-formed UTF-8 and the Windows-1252 table here, under Wine too;
// against a converter of its own in fuzz/text_fuzz.cpp), clString, and the
// lists and buffers built beside it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>

#include "support/clBuffer.h"
#include "support/clList.h"
#include "support/clString.h"
#include "support/platform.h"
#include "support/textcodec.h"

namespace {

std::string Bytes(std::initializer_list<int> values) { return std::string(values.begin(), values.end()); }

std::u16string S(const clString& s) { return std::u16string(s.View()); }

}  // namespace

TEST(TextCodec, IllFormedTextAndWindows1252) {
    const std::string kEnds = "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
    const std::pair<std::string, std::u16string> cases[] = {
        // The classic example of U+FFFD substitution of maximal subparts.
        {Bytes({0x61, 0xF1, 0x80, 0x80, 0xE1, 0x80, 0xC2, 0x62, 0x80, 0x63, 0x80, 0xBF, 0x64}),
         u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"},
        // Overlong forms of 2, 3 and 4 bytes, an encoded surrogate, above U+10FFFF.
        {Bytes({0xC0, 0xAF}), u"\uFFFD\uFFFD"}, {Bytes({0xE0, 0x80, 0xAF}), u"\uFFFD\uFFFD\uFFFD"},
        {Bytes({0xF0, 0x80, 0x80, 0xAF}), u"\uFFFD\uFFFD\uFFFD\uFFFD"}, {Bytes({0xED, 0xA0, 0x80}), u"\uFFFD\uFFFD\uFFFD"},
        {Bytes({0xF4, 0x90, 0x80, 0x80}), u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {Bytes({0xF5, 0x41}), u"\uFFFDA"},           {Bytes({0xE2, 0x82}), u"\uFFFD"},   // cut off at the end
        {Bytes({0xE2, 0x82, 0x41}), u"\uFFFDA"},     {Bytes({0xF0, 0x9D, 0x84}), u"\uFFFD"},
        {Bytes({0x80, 0x80}), u"\uFFFD\uFFFD"},      {Bytes({0x41, 0x00, 0x42}), std::u16string(u"A\0B", 3)},
        // Well-formed, at the ends of each length (every code point: fuzz/text_fuzz.cpp).
        {kEnds, u"\x7F\x80\u07FF\u0800\uFFFF\U00010000\U0010FFFF"},
    };
    for (const auto& [bytes, expected] : cases) EXPECT_EQ(text::Utf8ToUtf16(bytes), expected) << testing::PrintToString(bytes);
    EXPECT_EQ(text::Utf16ToUtf8(u"\x7F\x80\u07FF\u0800\uFFFF\U00010000\U0010FFFF"), kEnds);
    // Unpaired surrogates in UTF-16 (a reversed pair among them) become U+FFFD in UTF-8.
    EXPECT_EQ(text::Utf16ToUtf8(std::u16string{0xD800, u'A', 0xDC00, 0xDD1E, 0xD834}), "\xEF\xBF\xBD" "A" "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
    // Every byte maps and maps back (fuzz/text_fuzz.cpp); where to, by the table.
    EXPECT_EQ(text::AnsiToUtf16(Bytes({0x41, 0x80, 0x81, 0x82, 0x8A, 0x8D, 0x8F, 0x90, 0x93, 0x99, 0x9D, 0x9F, 0xA0, 0xFF})),
              u"A\u20AC\u0081\u201A\u0160\u008D\u008F\u0090\u201C\u2122\u009D\u0178\u00A0\u00FF");
    // Unmappable: one "?" per character, a surrogate pair included.
    EXPECT_EQ(text::Utf16ToAnsi(u"a\u0100b\u0080c\U0001D11Ed\u20AC"), "a?b?c?d\x80");
    EXPECT_EQ(text::Utf16ToAnsi(std::u16string{0xD800}), "?");
    const clString s = clString::FromUtf8("a\xC3\xA9\xF0\x9D\x84\x9E\xFF");
    EXPECT_EQ(S(s), u"a\u00E9\U0001D11E\uFFFD");
    EXPECT_STREQ(s.Utf8(), "a\xC3\xA9\xF0\x9D\x84\x9E\xEF\xBF\xBD");
    EXPECT_EQ(S(clString::FromAnsi("\x80\xE9")), u"\u20AC\u00E9");
    EXPECT_EQ(clString(u"\u20AC\u0100").ToAnsi(), "\x80?");
}

// Positions are 1-based; 0 is "not found" (a URL is a path holding "://"); case folds in ASCII only.
TEST(ClString, FindCompareAndFileExtension) {
    const clString s(u"Hello, World");
    const struct { const char16_t* needle; int start; bool ignoreCase; int found; } finds[] = {
        {u"e", 1, false, 2}, {u"z", 1, false, 0}, {u"o", 6, false, 9},  {u"WORLD", 1, true, 8},
        {u"WORLD", 1, false, 0}, {u"d", 12, false, 12}, {u"H", 0, false, 0}, {u"d", 13, false, 0}};
    for (const auto& f : finds) EXPECT_EQ(s.Find(f.needle, f.start, f.ignoreCase), f.found) << f.start;

    // "|" is the platform's separator; the other platform's ("~") is a name character.
    const char16_t separator = platform::PathSeparator(), other = separator == u'/' ? u'\\' : u'/';
    const std::pair<std::u16string, const char16_t*> extensions[] = {
        {u"|music|a.b|song.FLAC", u".FLAC"}, {u"|music|a.b|song", u"."}, {u"", u"."}, {u"dir~a.mka", u".mka"}};
    for (auto [path, extension] : extensions) {
        std::replace(path.begin(), path.end(), u'|', separator);
        std::replace(path.begin(), path.end(), u'~', other);
        EXPECT_EQ(S(clString(path.c_str()).FileExtension()), extension);
    }

    // n: 0 compares whole strings, -1 the length of b.
    const struct { const char16_t *a, *b; int n; bool ignoreCase; int result; } cases[] = {
        {u"abc", u"abc", 0, false, 0},    {u"abc", u"abd", 0, false, -1},      {u"ab", u"abc", 0, false, -1},
        {u"abc", nullptr, 0, false, 1},   {u"ABCd", u"abcE", 3, true, 0},      {u"ABCd", u"abcE", 4, true, -1},
        {u"ABCd", u"abcE", 3, false, -1}, {u"TITLE=x", u"title", -1, true, 0}, {u"TITLE=x", u"title", 0, true, 1},
        {u"\u00E9", u"\u00C9", 0, true, 1} /* no folding beyond ASCII */,      {u"_", u"a", 0, true, -1},
        {u"\uFFFF", u"a", 0, false, 1} /* units compare unsigned */,
    };
    for (const auto& c : cases)
        EXPECT_EQ(clString::Compare(c.a, c.b, c.n, c.ignoreCase), c.result) << testing::PrintToString(c.a) << c.n;
    EXPECT_TRUE(clString::EqualsNoCase(u"Album Artist", u"ALBUM artist"));
    EXPECT_FALSE(clString::EqualsNoCase(u"Album", u"Albums") || clString::EqualsNoCase(u"", nullptr) ||
                 clString::EqualsNoCase(u"\u00E4", u"\u00C4"));
}

TEST(ClString, NumbersToTextAndBack) {
    EXPECT_EQ(S(clString::FromInt(INT64_MIN)), u"-9223372036854775808");
    // Only blanks are trimmed; the number ends at the first foreign character.
    const std::pair<const char16_t*, int64_t> ints[] = {
        {u"  -12x", -12}, {u"+7", 7}, {u"- 5", 0}, {u"\t5", 0}, {u"9223372036854775807", INT64_MAX}};
    for (const auto& [text, value] : ints) EXPECT_EQ(clString(text).ToInt(), value) << testing::PrintToString(std::u16string(text));
    const std::pair<std::u16string, double> doubles[] = {
        {u"  -12.5abc", -12.5}, {u"+.5", 0.5}, {u"1e5", 1.0}, {u"1.2.3", 1.2}, {u"-", 0.0},
        {u"0.1", 0.1} /* correctly rounded */, {u"0." + std::u16string(400, u'0') + u"1", 0.0}};
    for (const auto& [text, value] : doubles) EXPECT_DOUBLE_EQ(clString(text.c_str()).ToDouble(), value) << testing::PrintToString(text);
    EXPECT_TRUE(std::isinf(clString(u"1" + std::u16string(400, u'0')).ToDouble()));

    // A rating is written as half its value with one digit, zeros cut.
    const std::pair<double, const char16_t*> ratings[] = {
        {2.0, u"2"}, {2.5, u"2.5"}, {-1.25, u"-1.3"}, {9.96, u"10"}, {0.04, u"0"}, {-300.0, u"-300"}, {1073741823.5, u"1073741823.5"}};
    for (const auto& [value, text] : ratings) EXPECT_EQ(S(clString::FromDouble(value, 1, false)), text) << value;
}

// The forms the system formats with: %s of wide text, %hs of UTF-8, %u; a
// broken format gives nothing, an unusable character is skipped.
TEST(ClString, FormatOfTextAndNumbers) {
    EXPECT_EQ(S(clString::Format(u"[%s][%6s][%-6s][%.2s]", u"w\u00E9\U0001D11E", u"ab", u"ab", u"abc")),
              u"[w\u00E9\U0001D11E][    ab][ab    ][ab]");
    EXPECT_EQ(S(clString::Format(u"%hs|%u|%u|100%%", "caf\xC3\xA9", 4u, -1)), u"caf\u00E9|4|4294967295|100%");
    EXPECT_EQ(S(clString::Format(u"%s", static_cast<const char16_t*>(nullptr))), u"(null)");
    for (const char16_t* broken : {u"abc %", u"%1.2.3d", static_cast<const char16_t*>(nullptr)})
        EXPECT_TRUE(clString::Format(broken, 5).Empty()) << testing::PrintToString(broken);
    EXPECT_EQ(S(clString::Format(u"%qd", 5)), u"5");
}

// "[Empty]" stands for an empty name and one more NUL ends the block; a
// buffer grows zeroed and refuses a null source.
TEST(ClLists, MultiStringsAndBuffers) {
    clStringList strings;
    strings.FromMultiString(u"one\0[Empty]\0three\0\0ignored\0");
    ASSERT_EQ(strings.Count(), 3);
    EXPECT_EQ(S(strings[0]) + u"|" + S(strings[1]) + u"|" + S(strings[2]), u"one||three");
    strings.FromMultiString(nullptr);
    EXPECT_EQ(strings.Count(), 0);
    clBuffer buffer;
    ASSERT_TRUE(buffer.Resize(100, true));
    EXPECT_EQ(std::count(buffer.Data(), buffer.Data() + 100, 0), 100);
    EXPECT_FALSE(buffer.Assign(nullptr, 2));
}
