// Art keys: the picture type table, taking keys apart and removing pictures.

#include <gtest/gtest.h>

#include "tagfixture.h"
#include "tags/idtags.h"
#include "tags/picturenaming.h"

using tagtest::Describe;
using tagtest::S;
using tagtest::Utf8;

TEST(PictureNaming, TypeTableBothWays) {
    EXPECT_EQ(PictureTypeFromName(S("A Bright Coloured Fish")), 17);
    EXPECT_EQ(PictureTypeFromName(S("a bRIGHT cOLOURED fISH")), 17);
    EXPECT_EQ(PictureTypeFromName(S("Undefined")), 3);
    EXPECT_EQ(PictureTypeFromName(S("")), 3);
    EXPECT_EQ(PictureTypeFromName(S("back album cover")), 4);
    EXPECT_TRUE(PictureTypeKeyPart(0).Empty());
    EXPECT_TRUE(PictureTypeKeyPart(21).Empty());
    EXPECT_EQ(Utf8(PictureTypeKeyPart(1)), "_32x32 Icon");
    EXPECT_EQ(Utf8(PictureTypeKeyPart(20)), "_Publisher Logo");
    for (int number = 1; number <= 20; ++number) {
        EXPECT_EQ(PictureTypeFromName(PictureTypeName(number)), number) << number;
    }
}

TEST(PictureNaming, SplitArtKey) {
    clString type, description;
    SplitArtKey(S("_albumart_12_Back Album Cover<subdesc>Inlay"), type, description);
    EXPECT_EQ(Utf8(type), "Back Album Cover");
    EXPECT_EQ(Utf8(description), "Inlay");

    SplitArtKey(S("_albumart_1_Media<subdesc>a<subdesc>b"), type, description);
    EXPECT_EQ(Utf8(type), "Media");
    EXPECT_EQ(Utf8(description), "a<subdesc>b");

    // "<subdesc>" is a case-sensitive separator.
    SplitArtKey(S("_albumart_1_Media<SUBDESC>x"), type, description);
    EXPECT_EQ(Utf8(type), "Media<SUBDESC>x");
    EXPECT_TRUE(description.Empty());

    const char* empties[] = {"_albumart_1_", "_albumart_1", "_albumart_", "", "_albumart_123"};
    for (const char* key : empties) {
        type = S("x");
        description = S("y");
        SplitArtKey(S(key), type, description);
        EXPECT_TRUE(type.Empty()) << key;
        EXPECT_TRUE(description.Empty()) << key;
    }
}

TEST(PictureNaming, FindFirstArtTakesTheFirstKeyNumberedOne) {
    IDTags tags;
    tags.Add(S("Title"), S("t"));
    tags.AddBinary(S("_albumart_2_Media"), "b", 1);
    tags.AddBinary(S("_ALBUMART_1_Back Album Cover<subdesc>Inlay"), "a", 1);
    clString type, description;
    IDTag* found = tags.FindFirstArt(type, description);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(tagtest::DataOf(*found), "a");
    EXPECT_EQ(Utf8(type), "Back Album Cover");
    EXPECT_EQ(Utf8(description), "Inlay");

    IDTags none;
    none.AddBinary(S("_albumart_2_Media"), "b", 1);
    type = S("x");
    EXPECT_EQ(none.FindFirstArt(type, description), nullptr);
    EXPECT_TRUE(type.Empty());
}

TEST(PictureNaming, RemoveArtRenumbersTheRestBehindEverythingElse) {
    IDTags tags;
    tags.AddBinary(S("_albumart_1_Front Album Cover"), "F", 1);
    tags.Add(S("Title"), S("t"));
    tags.AddBinary(S("_albumart_2_Back Album Cover<subdesc>Inlay"), "B", 1);
    tags.Add(S("_hidden"), S("h"));
    tags.AddBinary(S("_albumart_3_Media<subdesc>Disc"), "M", 1);
    tags.Add(S("_RIFF_info"), S("r"));
    tags.Add(S("Artist"), S("a"));

    // Neither type nor description matches: nothing changes, hidden names neither.
    IDTags unchanged = tags;
    EXPECT_FALSE(unchanged.RemoveArt(S("Leaflet Page"), S("nothing")));
    EXPECT_EQ(Describe(unchanged), Describe(tags));

    // Type matches; the type test is case-sensitive.
    IDTags byCase = tags;
    EXPECT_FALSE(byCase.RemoveArt(S("back album cover"), S("none")));

    ASSERT_TRUE(tags.RemoveArt(S("Back Album Cover"), S("none")));
    EXPECT_EQ(Describe(tags), "Title=t;_RIFF_info=r;Artist=a;"
                              "_albumart_1_Front Album Cover=[1 bytes];_albumart_2_Media<subdesc>Disc=[1 bytes];");
    EXPECT_EQ(tagtest::DataOf(tags[4]), "M");

    // An empty description matches every picture without one.
    ASSERT_TRUE(tags.RemoveArt(S("No Such Type"), S("")));
    EXPECT_EQ(Describe(tags), "Title=t;_RIFF_info=r;Artist=a;_albumart_1_Media<subdesc>Disc=[1 bytes];");
}

TEST(PictureNaming, RemoveHiddenSparesTheReservedNames) {
    IDTags tags;
    const char* names[] = {"_riff_a", "_RIFF_B", "_cdtoc", "_CDTOC", "_crc", "_Crc", "_crcx", "_x", "_", "",
                           "Title", "_albumart_1_Media"};
    for (const char* name : names) tags.Add(S(name), S("v"));
    tags.RemoveHidden();
    EXPECT_EQ(Describe(tags), "_riff_a=v;_RIFF_B=v;_cdtoc=v;_CDTOC=v;_crc=v;_Crc=v;=v;Title=v;");
}
