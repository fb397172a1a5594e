// clString: numbers to text and back.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/clString.h"

namespace {

std::u16string S(const clString& s) { return std::u16string(s.View()); }

}  // namespace

TEST(ClStringNumber, IntegersAndHex) {
    EXPECT_EQ(S(clString::FromInt(0)), u"0");
    EXPECT_EQ(S(clString::FromInt(-45)), u"-45");
    EXPECT_EQ(S(clString::FromInt(INT64_MIN)), u"-9223372036854775808");
    EXPECT_EQ(S(clString::FromInt(INT64_MAX)), u"9223372036854775807");
    EXPECT_EQ(S(clString::FromUInt(UINT64_MAX)), u"18446744073709551615");
    EXPECT_EQ(S(clString::FromHex(255)), u"00000000000000FF");
    EXPECT_EQ(S(clString::FromHex(0xDEADBEEFCAFEF00Dull)), u"DEADBEEFCAFEF00D");

    EXPECT_EQ(clString(u"  -12x").ToInt(), -12);
    EXPECT_EQ(clString(u"+7").ToInt(), 7);
    EXPECT_EQ(clString(u"x1").ToInt(), 0);
    EXPECT_EQ(clString(u"- 5").ToInt(), 0);
    EXPECT_EQ(clString(u"\t5").ToInt(), 0);   // only blanks are trimmed
    EXPECT_EQ(clString(u"9223372036854775807").ToInt(), INT64_MAX);
}

TEST(ClStringNumber, FromDoubleRoundsAndCutsZeros) {
    EXPECT_EQ(S(clString::FromDouble(3.14159, 2, false)), u"3.14");
    EXPECT_EQ(S(clString::FromDouble(3.14659, 2, false)), u"3.15");
    EXPECT_EQ(S(clString::FromDouble(0.5, 0, false)), u"1");
    EXPECT_EQ(S(clString::FromDouble(1.5, 3, true)), u"1.500");
    EXPECT_EQ(S(clString::FromDouble(1.5, 3, false)), u"1.5");
    EXPECT_EQ(S(clString::FromDouble(2.0, 2, false)), u"2");
    EXPECT_EQ(S(clString::FromDouble(2.0, 2, true)), u"2.00");
    EXPECT_EQ(S(clString::FromDouble(0.05, 2, true)), u"0.05");   // leading zeros of the fraction
    EXPECT_EQ(S(clString::FromDouble(0.001, 2, false)), u"0");
    EXPECT_EQ(S(clString::FromDouble(9.9999, 2, false)), u"10");
    EXPECT_EQ(S(clString::FromDouble(-1.25, 1, false)), u"-1.3");
    EXPECT_EQ(S(clString::FromDouble(-300.0, 0, false)), u"-300");
    EXPECT_EQ(S(clString::FromDouble(44.1, 1, true)), u"44.1");

    // Beyond 16 digits the integer part is padded with zeros.
    EXPECT_EQ(S(clString::FromDouble(1e20, 0, false)), u"100000000000000000000");
    EXPECT_EQ(S(clString::FromDouble(123456789012345678901.0, 0, false)), u"123456789012345600000");
    EXPECT_EQ(S(clString::FromDouble(9007199254740993.0, 0, false)), u"9007199254740992");
    EXPECT_EQ(clString::FromDouble(9.99e99, 0, false).Length(), 100);

    EXPECT_EQ(S(clString::FromDouble(std::nan(""), 2, false)), u"NAN");
    EXPECT_EQ(S(clString::FromDouble(1e100, 2, false)), u"NaN");
    EXPECT_EQ(S(clString::FromDouble(-1e100, 2, false)), u"NaN");
    EXPECT_EQ(S(clString::FromDouble(std::numeric_limits<double>::infinity(), 2, false)), u"NaN");
}

TEST(ClStringNumber, ToDoubleStopsAtTheFirstForeignCharacter) {
    EXPECT_DOUBLE_EQ(clString(u"  -12.5abc").ToDouble(), -12.5);
    EXPECT_DOUBLE_EQ(clString(u"3.25 7").ToDouble(), 3.25);
    EXPECT_DOUBLE_EQ(clString(u"+.5").ToDouble(), 0.5);
    EXPECT_DOUBLE_EQ(clString(u"1e5").ToDouble(), 1.0);
    EXPECT_DOUBLE_EQ(clString(u"1.2.3").ToDouble(), 1.2);
    EXPECT_DOUBLE_EQ(clString(u"abc").ToDouble(), 0.0);
    EXPECT_DOUBLE_EQ(clString(u"").ToDouble(), 0.0);
    EXPECT_DOUBLE_EQ(clString(u"-").ToDouble(), 0.0);
    EXPECT_DOUBLE_EQ(clString(u"0.1").ToDouble(), 0.1);   // correctly rounded
    EXPECT_TRUE(std::isinf(clString(u"1" + std::u16string(400, u'0')).ToDouble()));
    EXPECT_DOUBLE_EQ(clString(u"0." + std::u16string(400, u'0') + u"1").ToDouble(), 0.0);
}
