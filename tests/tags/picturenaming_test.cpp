// Art keys: the picture type table, taking keys apart and removing pictures.

#include <gtest/gtest.h>

#include "tagfixture.h"
#include "tags/picturenaming.h"

using namespace tagtest;

TEST(PictureNaming, TypeTableAndSplitArtKey) {
    EXPECT_EQ(PictureTypeFromName(S("a bRIGHT cOLOURED fISH")), 17);
    EXPECT_EQ(PictureTypeFromName(S("Undefined")), 3);
    EXPECT_EQ(PictureTypeFromName(S("")), 3);
    EXPECT_TRUE(PictureTypeKeyPart(0).Empty());
    EXPECT_TRUE(PictureTypeKeyPart(21).Empty());
    EXPECT_EQ(Utf8(PictureTypeKeyPart(20)), "_Publisher Logo");
    for (int number = 1; number <= 20; ++number) EXPECT_EQ(PictureTypeFromName(PictureTypeName(number)), number);

    struct Case {
        const char* key;
        const char* type;
        const char* description;
    } cases[] = {
        {"_albumart_12_Back Album Cover<subdesc>Inlay", "Back Album Cover", "Inlay"},
        {"_albumart_1_Media<subdesc>a<subdesc>b", "Media", "a<subdesc>b"},
        {"_albumart_1_Media<SUBDESC>x", "Media<SUBDESC>x", ""},   // the separator is case-sensitive
        {"_albumart_1_", "", ""}, {"_albumart_1", "", ""}, {"_albumart_", "", ""},
    };
    for (const Case& c : cases) {
        clString type = S("x"), description = S("y");
        SplitArtKey(S(c.key), type, description);
        EXPECT_EQ(Utf8(type), c.type) << c.key;
        EXPECT_EQ(Utf8(description), c.description) << c.key;
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
    EXPECT_EQ(DataOf(*found), "a");
    EXPECT_EQ(Utf8(type) + "/" + Utf8(description), "Back Album Cover/Inlay");
    tags.RemoveAt(2);
    EXPECT_EQ(tags.FindFirstArt(type, description), nullptr);
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

    // No type and no description matches: nothing changes, hidden names neither.
    IDTags unchanged = tags;
    EXPECT_FALSE(unchanged.RemoveArt(S("Leaflet Page"), S("nothing")));
    EXPECT_FALSE(unchanged.RemoveArt(S("back album cover"), S("none")));   // case-sensitive
    EXPECT_EQ(Describe(unchanged), Describe(tags));

    ASSERT_TRUE(tags.RemoveArt(S("Back Album Cover"), S("none")));
    EXPECT_EQ(Describe(tags), "Title=t;_RIFF_info=r;"
                              "_albumart_1_Front Album Cover=[1 bytes];_albumart_2_Media<subdesc>Disc=[1 bytes];");
    EXPECT_EQ(DataOf(tags[3]), "M");

    // An empty description matches every picture without one.
    ASSERT_TRUE(tags.RemoveArt(S("No Such Type"), S("")));
    EXPECT_EQ(Describe(tags), "Title=t;_RIFF_info=r;_albumart_1_Media<subdesc>Disc=[1 bytes];");
}

TEST(PictureNaming, RemoveHiddenSparesTheReservedNames) {
    IDTags tags;
    for (const char* name : {"_riff_a", "_RIFF_B", "_CDTOC", "_Crc", "_crcx", "_x", "_", "", "Title", "_albumart_1_"}) {
        tags.Add(S(name), S("v"));
    }
    tags.RemoveHidden();
    EXPECT_EQ(Describe(tags), "_riff_a=v;_RIFF_B=v;_CDTOC=v;_Crc=v;=v;Title=v;");
}
