#include <gtest/gtest.h>

#include <string>

#include "transport/worker.h"

namespace {

std::u16string Convert(const std::string& bytes) { return FromUtf8Units(bytes.data(), bytes.size()); }

TEST(FromUtf8, WorkerConversionRules) {
    EXPECT_EQ(Convert("abc"), u"abc");
    EXPECT_EQ(Convert(std::string("ab\0cd", 5)), u"ab");
    EXPECT_EQ(FromUtf8Units("abc", 2), u"ab");
    EXPECT_EQ(Convert("\xC3\xA9\xE2\x82\xAC"), u"\u00E9\u20AC");
    // One unit per character: U+1F600 keeps its low 16 bits, no surrogates.
    EXPECT_EQ(Convert("\xF0\x9F\x98\x80!"), std::u16string({char16_t(0xF600), u'!'}));
    EXPECT_EQ(Convert("\xF8\x88\x80\x80\x81"), std::u16string(1, char16_t(1)));       // 5 bytes
    EXPECT_EQ(Convert("\xFC\x84\x80\x80\x80\x81"), std::u16string(1, char16_t(1)));   // 6 bytes

    // Every kind of bad input ends the text there, silently.
    EXPECT_EQ(Convert("a\x80z"), u"a");                 // stray continuation
    EXPECT_EQ(Convert("a\xC0\x80z"), u"a");             // forbidden lead
    EXPECT_EQ(Convert("a\xC1\xBFz"), u"a");
    EXPECT_EQ(Convert("a\xC3"), u"a");                  // passes the length
    EXPECT_EQ(Convert("a\xE2\x82"), u"a");
    EXPECT_EQ(Convert("a\xC3(z"), u"a");                // bad continuation
    EXPECT_EQ(Convert("a\xE0\x80\x80z"), u"a");         // overlong, 3 bytes
    EXPECT_EQ(Convert("a\xF0\x80\x80\x80z"), u"a");     // overlong, 4 bytes
    EXPECT_EQ(Convert("a\xFE"), u"a");
    EXPECT_EQ(FromUtf8Units(nullptr, 4), u"");

    EXPECT_EQ(FromUtf8("x\xC3\xA9y", 4).View(), u"x\u00E9y");
}

}  // namespace
