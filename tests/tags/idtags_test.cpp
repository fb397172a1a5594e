// The tag collection, its flat form (the tag blob) and the naming of pictures in it.

#include <gtest/gtest.h>

#include "tagfixture.h"
#include "tags/picturenaming.h"

using namespace tagtest;

namespace {

// Blob pieces by hand, so that malformed ones can be made too: UTF-16LE of ASCII, with its NUL unless `open`.
std::string U16(const std::string& text, bool open = false) {
    std::string out;
    for (char c : text) out += {c, '\0'};
    return open ? out : out + std::string(2, '\0');
}
std::string Entry(const std::string& name, const std::string& value) {
    return U32(static_cast<uint32_t>(4 + 2 * (name.size() + value.size() + 2))) + U16(name) + U16(value);
}

// Describe, with the data's bytes shown, NUL as "." unless `exact`.
std::string Shown(const IDTags& tags, bool exact = false) {
    std::string text;
    for (int i = 0; i < tags.Count(); ++i)
        text += Utf8(tags[i].Name) + "=" + Utf8(tags[i].Value) + (tags[i].Data.Empty() ? "" : "[" + DataOf(tags[i]) + "]") + ";";
    if (!exact) std::replace(text.begin(), text.end(), '\0', '.');
    return text;
}

}  // namespace

TEST(IDTags, SerialisedFormIsExactAndParsesBack) {
    IDTags tags;
    clBuffer buffer;
    tags.Serialise(buffer);
    const auto Flat = [&] { return std::string(reinterpret_cast<const char*>(buffer.Data()), buffer.Size()); };
    EXPECT_EQ(Flat(), std::string(4, '\0'));
    tags.Add(S("A"), S("\xC3\xA9"));
    tags.AddBinary(S(""), "\xFF\x00\x7F", 3);
    tags.Serialise(buffer);
    EXPECT_EQ(Flat(), U32(2) + U32(12) + U16("A") + "\xE9\0\0\0"s + U32(11) + U16("") + U16("") + "\xFF\0\x7F"s);
    clBuffer roomy;   // a buffer with room enough keeps its storage
    roomy.Resize(4096);
    const uint8_t* storage = roomy.Data();
    tags.Serialise(roomy);
    EXPECT_EQ(roomy.Data(), storage);
    EXPECT_EQ(roomy.Size(), buffer.Size());

    tags.Add(S("Title"), S("Caf\xC3\xA9 \xF0\x9D\x84\x9E"));
    tags.Add(S("Artist"), S("One\rTwo"));
    const std::string picture = AudioBytes(70000);
    tags.AddBinary(S("_albumart_3_Front<subdesc>x"), picture.data(), static_cast<uint32_t>(picture.size()));
    tags.Add(S("Both"), S("text"))->Data.Assign("\x01\x00\x02", 3);
    tags.AddCopy(tags[4]);   // a copy of an own entry, whose storage may move meanwhile
    tags.Serialise(buffer);
    IDTags back;
    back.Add(S("stale"), S(""));   // Parse starts over
    back.Parse(buffer.Data(), buffer.Size());
    EXPECT_EQ(Shown(back, true), Shown(tags, true));
    // Copies are deep, and a self-assignment keeps everything.
    IDTags copy(back);
    copy[6].Data.Data()[0] = 9;
    copy = static_cast<const IDTags&>(copy);
    EXPECT_EQ(DataOf(copy[6])[0], 9);
    EXPECT_EQ(Shown(back, true), Shown(tags, true));
}

// What a damaged blob still gives (more malformed blobs: the idtags fuzz replay).
TEST(IDTags, ParseIsForgiving) {
    const auto a = [](uint32_t count) { return U32(count) + Entry("A", "1"); };
    const std::pair<std::string, const char*> cases[] = {
        {a(-3u), ""}, {a(9) + Entry("B", "2"), "A=1;B=2;"}, {a(1) + Entry("B", "2"), "A=1;"}, {a(3) + U32(-1u) + Entry("B", "2"), "A=1;"},
        {a(3) + U32(1000) + U16("B") + U16("2"), "A=1;"},
        {a(3) + U32(3) + Entry("B", "2"), "A=1;=;"},   // a length of 4 or less: an empty entry, and the end
        // Without a NUL inside the length, the bytes go to Data.
        {U32(2) + U32(4 + 6) + U16("abc", true) + Entry("B", "2"), "=[a.b.c.];B=2;"},
        {U32(1) + U32(4 + 4 + 4) + U16("N") + U16("vw", true), "N=[v.w.];"},
    };
    IDTags tags;
    for (const auto& [bytes, shown] : cases) {
        tags.Parse(reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<int64_t>(bytes.size()));
        EXPECT_EQ(Shown(tags), shown);
    }
    tags.Parse(nullptr, 100);
    EXPECT_EQ(tags.Count(), 0);
    EXPECT_EQ(tags.Current, nullptr);
}

TEST(IDTags, FindRemoveAndTakeVersion) {
    IDTags tags;
    for (const char* name : {"Title", "_albumart_1_Front<subdesc>first", "Artist<subdesc>x", "\xC3\x89t\xC3\xA9"}) tags.Add(S(name), S(""));
    // `found`: the entry's index, -1 for none.
    const struct { const char* name; bool strip; int found; } finds[] = {
        {"TITLE", false, 0}, {"\xC3\xA9t\xC3\xA9", false, -1} /* only A to Z fold */, {"Titl", false, -1},
        {"_ALBUMART_1_front<subdesc>second", true, 1}, {"_ALBUMART_1_front<subdesc>second", false, -1},
        {"_albumart_1_Front<SUBDESC>first", true, -1} /* the marker has case */, {"Artist", true, -1} /* never cut */,
    };
    for (const auto& f : finds) {
        IDTag* expected = f.found < 0 ? nullptr : &tags[f.found];
        EXPECT_EQ(tags.Find(S(f.name), f.strip), expected) << f.name;
        EXPECT_EQ(tags.Current, expected ? expected : tags.Current) << f.name;
    }
    EXPECT_EQ(Utf8(NormalisedTagName(S("_AlbumArt_2_Back<subdesc>d<subdesc>e"), true)), "_AlbumArt_2_Back");
    EXPECT_EQ(Utf8(NormalisedTagName(S("_albumart<subdesc>d"), true)), "_albumart<subdesc>d");

    // Removal takes every case, keeps the order and doesn't strip.
    IDTags list;
    for (const char* name : {"Artist", "TagVersion", "ARTIST", "Album", "tagversion", "artist"}) list.Add(S(name), S(name));
    EXPECT_TRUE(list.Remove(S("aRtIsT")));
    EXPECT_EQ(list.Current, nullptr);
    list.AddCopy(tags[1]);
    EXPECT_FALSE(list.Remove(S("_albumart_1_Front")));
    EXPECT_TRUE(list.Remove(S("_ALBUMART_1_Front<subdesc>first")));
    EXPECT_EQ(Utf8(list.TakeVersion()), "TagVersion");   // only the first version goes each time
    EXPECT_EQ(Shown(list), "Album=Album;tagversion=tagversion;");
    list.Add(S("Title"), S(""));
    list.Find(S("Album"), false);
    list.RemoveAt(1);
    list.RemoveAt(5);                    // out of range: nothing
    EXPECT_EQ(list.Current, &list[0]);   // the cursor stays on a survivor
    EXPECT_EQ(list.Count(), 2);
}

TEST(PictureNaming, TypeTableAndArtKeys) {
    EXPECT_EQ(PictureTypeFromName(S("a bRIGHT cOLOURED fISH")), 17);
    EXPECT_EQ(PictureTypeFromName(S("Undefined")), 3);
    EXPECT_TRUE(PictureTypeKeyPart(21).Empty());
    EXPECT_EQ(Utf8(PictureTypeKeyPart(20)), "_Publisher Logo");
    const struct { const char *key, *split; } cases[] = {
        {"_albumart_12_Back Album Cover<subdesc>Inlay", "Back Album Cover/Inlay"},
        {"_albumart_1_Media<subdesc>a<subdesc>b", "Media/a<subdesc>b"},
        {"_albumart_1_Media<SUBDESC>x", "Media<SUBDESC>x/"}, {"_albumart_1", "/"},
    };
    for (const auto& c : cases) {
        clString type = S("x"), description = S("y");
        SplitArtKey(S(c.key), type, description);
        EXPECT_EQ(Utf8(type) + "/" + Utf8(description), c.split) << c.key;
    }
    // The first art key numbered one, whatever its place.
    IDTags tags;
    tags.Add(S("Title"), S("t"));
    tags.AddBinary(S("_albumart_2_Media"), "b", 1);
    tags.AddBinary(S("_ALBUMART_1_Back Album Cover<subdesc>Inlay"), "a", 1);
    clString type, description;
    ASSERT_EQ(tags.FindFirstArt(type, description), &tags[2]);
    EXPECT_EQ(Utf8(type) + "/" + Utf8(description), "Back Album Cover/Inlay");
    tags.RemoveAt(2);
    EXPECT_EQ(tags.FindFirstArt(type, description), nullptr);
    EXPECT_TRUE(type.Empty());
}

// Which pictures go (renumbering and what stays visible: the removeart fuzz target).
TEST(PictureNaming, RemoveArtRenumbersTheRestAndRemoveHiddenSparesReservedNames) {
    IDTags tags;
    tags.AddBinary(S("_albumart_1_Front Album Cover"), "F", 1);
    tags.Add(S("Title"), S("t"));
    tags.AddBinary(S("_albumart_2_Back Album Cover<subdesc>Inlay"), "B", 1);
    tags.AddBinary(S("_albumart_3_Media<subdesc>Disc"), "M", 1);
    EXPECT_FALSE(tags.RemoveArt(S("back album cover"), S("none")));   // case-sensitive
    ASSERT_TRUE(tags.RemoveArt(S("Back Album Cover"), S("none")));
    EXPECT_EQ(Shown(tags), "Title=t;_albumart_1_Front Album Cover=[F];_albumart_2_Media<subdesc>Disc=[M];");
    ASSERT_TRUE(tags.RemoveArt(S("No Such Type"), S("")));   // an empty description matches every picture without one
    EXPECT_EQ(Shown(tags), "Title=t;_albumart_1_Media<subdesc>Disc=[M];");

    tags.Clear();
    for (const char* name : {"_riff_a", "_RIFF_B", "_CDTOC", "_Crc", "_crcx", "_x", "_", "", "Title", "_albumart_1_"}) tags.Add(S(name), S("v"));
    tags.RemoveHidden();
    EXPECT_EQ(Shown(tags), "_riff_a=v;_RIFF_B=v;_CDTOC=v;_Crc=v;=v;Title=v;");
}
