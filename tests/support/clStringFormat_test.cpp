// clString::Format, the printf-style formatter with UTF-16 %s.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>

#include "support/clString.h"

namespace {

std::u16string S(const clString& s) { return std::u16string(s.View()); }

}  // namespace

TEST(ClStringFormat, IntegersWidthsAndFlags) {
    EXPECT_EQ(S(clString::Format(u"%d|%5d|%-5d|%05d|%+d|%i", 42, 42, 42, -42, 7, -3)),
              u"42|   42|42   |-0042|+7|-3");
    EXPECT_EQ(S(clString::Format(u"%u %x %X %08X %#x", -1, 255, 255, 0xBEEF, 16)),
              u"4294967295 ff FF 0000BEEF 0x10");
    EXPECT_EQ(S(clString::Format(u"%lld %llu", static_cast<long long>(INT64_MIN), static_cast<unsigned long long>(UINT64_MAX))),
              u"-9223372036854775808 18446744073709551615");
    EXPECT_EQ(S(clString::Format(u"%zu %ld %.3d %*d", static_cast<size_t>(5), -6L, 7, 4, 8)), u"5 -6 007    8");
    EXPECT_EQ(S(clString::Format(u"%*d|", -3, 7)), u"7  |");
    EXPECT_EQ(S(clString::Format(u"100%% %c", u'Z')), u"100% Z");
}

TEST(ClStringFormat, StringsAndDoubles) {
    const char16_t* wide = u"w\u00E9\U0001D11E";
    EXPECT_EQ(S(clString::Format(u"[%s][%6s][%-6s][%.2s]", wide, u"ab", u"ab", u"abc")),
              u"[w\u00E9\U0001D11E][    ab][ab    ][ab]");
    EXPECT_EQ(S(clString::Format(u"%hs|%S", "caf\xC3\xA9", "x")), u"caf\u00E9|x");
    EXPECT_EQ(S(clString::Format(u"%s", static_cast<const char16_t*>(nullptr))), u"(null)");
    EXPECT_EQ(S(clString::Format(u"%.2f|%f|%8.3f|%08.2f|%+.1f|%.0f", 3.14159, 1.5, -2.5, -2.5, 2.0, 2.5)),
              u"3.14|1.500000|  -2.500|-0002.50|+2.0|2");
    EXPECT_EQ(S(clString::Format(u"%.1f", 1e20)), u"100000000000000000000.0");
}

TEST(ClStringFormat, LongResultsAndBrokenFormats) {
    const std::u16string big(5000, u'q');
    EXPECT_EQ(S(clString::Format(u"<%s>", big.c_str())), u"<" + big + u">");
    EXPECT_EQ(clString::Format(u"%3000d", 1).Length(), 3000);

    EXPECT_TRUE(clString::Format(u"abc %").Empty());
    EXPECT_TRUE(clString::Format(u"%1.2.3d", 5).Empty());
    EXPECT_TRUE(clString::Format(nullptr).Empty());
    EXPECT_EQ(S(clString::Format(u"%qd", 5)), u"5");   // an unusable character is skipped

    errno = 0;
    EXPECT_TRUE(clString::LastErrorText().Empty());
    errno = ENOENT;
    EXPECT_EQ(S(clString::LastErrorText()), u"(errno:2)");
    errno = 0;
}
