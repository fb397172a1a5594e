// clString: positions, sizes, edits, comparisons and conversions.

#include <gtest/gtest.h>

#include "support/clString.h"

namespace {

std::u16string S(const clString& s) { return std::u16string(s.View()); }

}  // namespace

TEST(ClString, SizeCountsTheNulAndClearingKeepsMemory) {
    clString s;
    EXPECT_EQ(s.Size(), 1);
    EXPECT_EQ(s.Text()[0], 0);
    s.Set(u"a fairly long text that needs its own block");
    const int capacity = s.Capacity();
    EXPECT_EQ(s.Size(), 44);
    s.Set(u"");
    EXPECT_EQ(s.Size(), 1);
    EXPECT_EQ(s.Capacity(), capacity);
    s.Set(nullptr);
    EXPECT_TRUE(s.Empty());

    s.Set(u"abcdef", 3);
    EXPECT_EQ(S(s), u"abc");
    s.Set(s.Text() + 1);   // a source inside the string itself
    EXPECT_EQ(S(s), u"bc");

    clString tagged(u"x");
    tagged.tag = 77;
    const clString copy(tagged);
    clString moved(std::move(tagged));
    EXPECT_EQ(copy.tag, 77u);
    EXPECT_EQ(moved.tag, 77u);
    EXPECT_EQ(S(moved), u"x");
}

TEST(ClString, PositionsAreOneBasedAndInclusive) {
    const clString s(u"Hello, World");
    EXPECT_EQ(s.Find(u"e"), 2);
    EXPECT_EQ(s.Find(u"z"), 0);
    EXPECT_EQ(s.Find(u"o", 6), 9);
    EXPECT_EQ(s.Find(u"WORLD", 1, true), 8);
    EXPECT_EQ(s.Find(u"WORLD", 1, false), 0);
    EXPECT_EQ(s.Find(u"d", 12), 12);
    EXPECT_EQ(s.Find(u"H", 0), 0);
    EXPECT_EQ(s.Find(u"d", 13), 0);

    EXPECT_EQ(S(s.Mid(1, 5)), u"Hello");
    EXPECT_EQ(S(s.Mid(8, 100)), u"World");
    EXPECT_EQ(S(s.Mid(12, 12)), u"d");
    EXPECT_TRUE(s.Mid(6, 5).Empty());
    EXPECT_TRUE(s.Mid(0, 3).Empty());
    EXPECT_TRUE(s.Mid(13, 20).Empty());

    clString e(u"abcdef");
    e.Erase(2, 3);
    EXPECT_EQ(S(e), u"adef");
    e.Erase(3, 99);
    EXPECT_EQ(S(e), u"ad");
    e.Erase(5, 6);
    EXPECT_EQ(S(e), u"ad");

    clString i(u"ace");
    i.Insert(u"b", 2);
    i.Insert(u"d", 4);
    i.Insert(u"f", 6);   // right behind the end: appends
    EXPECT_EQ(S(i), u"abcdef");
    i.Insert(u"x", 8);   // beyond: nothing
    i.Insert(u"x", 0);
    EXPECT_EQ(S(i), u"abcdef");
}

TEST(ClString, AppendingAndSplitting) {
    clString s(u"ab");
    s.Append(u"cd");
    s.Append(clString(u"ef"));
    s.Append(u'g');
    s.AppendGrow(u"");
    s.AppendGrow(nullptr);
    s.AppendGrow(u"h");
    s.Append(s);
    EXPECT_EQ(S(s), u"abcdefghabcdefgh");

    clString head, tail;
    clString(u"image/jpeg/x").SplitAt(head, tail);
    EXPECT_EQ(S(head), u"image");
    EXPECT_EQ(S(tail), u"jpeg/x");
    clString(u"plain").SplitAt(head, tail);
    EXPECT_EQ(S(head), u"plain");
    EXPECT_TRUE(tail.Empty());

    clString t(u"  \tx ");
    t.TrimLeft();
    EXPECT_EQ(S(t), u"\tx ");
    clString blanks(u"   ");
    blanks.TrimLeft();
    EXPECT_TRUE(blanks.Empty());
}

TEST(ClString, FileExtensionAndSeparator) {
    EXPECT_EQ(S(clString(u"/music/a.b/song.FLAC").FileExtension()), u".FLAC");
    EXPECT_EQ(S(clString(u"/music/a.b/song").FileExtension()), u".");
    EXPECT_EQ(S(clString(u"x.tar.gz").FileExtension()), u".gz");
    EXPECT_EQ(S(clString(u"").FileExtension()), u".");
    EXPECT_EQ(S(clString(u"dir\\a.mka").FileExtension()), u".mka");   // a backslash is a name character here

    clString dir(u"/tmp");
    dir.AppendBackslash();
    dir.AppendBackslash();
    EXPECT_EQ(S(dir), u"/tmp/");
}

TEST(ClString, CompareFoldsOnlyAscii) {
    EXPECT_EQ(clString::Compare(u"abc", u"abc"), 0);
    EXPECT_EQ(clString::Compare(u"abc", u"abd"), -1);
    EXPECT_EQ(clString::Compare(u"ab", u"abc"), -1);
    EXPECT_EQ(clString::Compare(u"abc", nullptr), 1);
    EXPECT_EQ(clString::Compare(u"ABCd", u"abcE", 3, true), 0);
    EXPECT_NE(clString::Compare(u"ABCd", u"abcE", 4, true), 0);
    EXPECT_NE(clString::Compare(u"ABCd", u"abcE", 3, false), 0);
    EXPECT_EQ(clString::Compare(u"TITLE=x", u"title", -1, true), 0);   // the length of b
    EXPECT_EQ(clString::Compare(u"TITLE=x", u"title", 0, true), 1);
    EXPECT_EQ(clString::Compare(u"\u00E9", u"\u00C9", 0, true), 1);    // no folding beyond ASCII
    EXPECT_EQ(clString::Compare(u"_", u"a", 0, true), -1);
    EXPECT_EQ(clString::Compare(u"\uFFFF", u"a"), 1);                  // units compare unsigned

    EXPECT_TRUE(clString::EqualsNoCase(u"Album Artist", u"ALBUM artist"));
    EXPECT_FALSE(clString::EqualsNoCase(u"Album", u"Albums"));
    EXPECT_FALSE(clString::EqualsNoCase(u"", nullptr));
    EXPECT_FALSE(clString::EqualsNoCase(u"\u00E4", u"\u00C4"));
}

TEST(ClString, ConversionsOfEightBitText) {
    const clString s = clString::FromUtf8("a\xC3\xA9\xF0\x9D\x84\x9E\xFF");
    EXPECT_EQ(S(s), u"a\u00E9\U0001D11E\uFFFD");
    EXPECT_STREQ(s.Utf8(), "a\xC3\xA9\xF0\x9D\x84\x9E\xEF\xBF\xBD");
    EXPECT_EQ(s.ToUtf8(), s.Utf8());
    EXPECT_EQ(S(clString::FromAnsi("\x80\xE9")), u"\u20AC\u00E9");
    EXPECT_EQ(S(clString::FromLatin1("\x80\xE9")), u"\u0080\u00E9");
    EXPECT_EQ(clString(u"\u20AC\u0100").ToAnsi(), "\x80?");
    EXPECT_EQ(clString(u"\u20AC\u00E9").ToLatin1(), "?\xE9");
}
