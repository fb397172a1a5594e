// The tag collection and its flat form, the tag blob.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tags/idtags.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Builds blobs by hand, so that malformed ones can be made too.
struct Blob {
    Bytes bytes;
    Blob& I32(int32_t value) {
        for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<uint8_t>(static_cast<uint32_t>(value) >> (8 * i)));
        return *this;
    }
    // UTF-16LE units, with the NUL when `terminated`.
    Blob& Text(std::u16string_view text, bool terminated = true) {
        for (char16_t unit : text) {
            bytes.insert(bytes.end(), {static_cast<uint8_t>(unit), static_cast<uint8_t>(unit >> 8)});
        }
        if (terminated) bytes.insert(bytes.end(), {0, 0});
        return *this;
    }
    Blob& Raw(const Bytes& raw) {
        bytes.insert(bytes.end(), raw.begin(), raw.end());
        return *this;
    }
    Blob& Entry(std::u16string_view name, std::u16string_view value) {
        return I32(static_cast<int32_t>(4 + 2 * (name.size() + 1) + 2 * (value.size() + 1))).Text(name).Text(value);
    }
};

Bytes DataOf(const IDTag& tag) { return Bytes(tag.Data.Data(), tag.Data.Data() + tag.Data.Size()); }
Bytes BytesOf(const clBuffer& b) { return Bytes(b.Data(), b.Data() + b.Size()); }
clString S(const char16_t* text) { return clString(text); }

}  // namespace

TEST(IDTags, SerialisedFormIsExactAndParsesBack) {
    IDTags tags;
    clBuffer buffer;
    tags.Serialise(buffer);
    EXPECT_EQ(BytesOf(buffer), (Bytes{0, 0, 0, 0}));

    tags.Add(S(u"A"), S(u"\u00E9"));
    tags.AddBinary(S(u""), "\xFF\x00\x7F", 3);
    tags.Serialise(buffer);
    EXPECT_EQ(BytesOf(buffer), (Bytes{2, 0, 0, 0,                                  // count
                                      12, 0, 0, 0, 'A', 0, 0, 0, 0xE9, 0, 0, 0,    // 4 + 4 + 4
                                      11, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0x00, 0x7F}));  // 4 + 2 + 2 + 3
    // A buffer with room enough keeps its storage.
    clBuffer roomy;
    roomy.Resize(4096);
    const uint8_t* storage = roomy.Data();
    tags.Serialise(roomy);
    EXPECT_EQ(roomy.Data(), storage);
    EXPECT_EQ(roomy.Size(), buffer.Size());

    tags.Add(S(u"Title"), S(u"Caf\u00E9 \U0001D11E"));
    tags.Add(S(u"Artist"), S(u"One\rTwo"));
    Bytes picture(70000);
    for (size_t i = 0; i < picture.size(); ++i) picture[i] = static_cast<uint8_t>(i * 7);
    tags.AddBinary(S(u"_albumart_3_Front<subdesc>x"), picture.data(), static_cast<uint32_t>(picture.size()));
    tags.Add(S(u"Both"), S(u"text"))->Data.Assign("\x01\x00\x02", 3);
    tags.Serialise(buffer);
    // At an odd address too; and Parse starts over.
    Bytes shifted(buffer.Size() + 1);
    std::memcpy(shifted.data() + 1, buffer.Data(), buffer.Size());
    IDTags back;
    back.Add(S(u"stale"), S(u""));
    back.Parse(shifted.data() + 1, buffer.Size());
    ASSERT_EQ(back.Count(), tags.Count());
    for (int i = 0; i < tags.Count(); ++i) {
        EXPECT_EQ(back[i].Name, tags[i].Name) << i;
        EXPECT_EQ(back[i].Value, tags[i].Value) << i;
        EXPECT_EQ(DataOf(back[i]), DataOf(tags[i])) << i;
    }
    EXPECT_EQ(DataOf(back[4]), picture);
}

TEST(IDTags, ParseIsForgiving) {
    const auto a = [](int32_t count) { return Blob().I32(count).Entry(u"A", u"1"); };
    struct Case {
        const char* what;
        Bytes bytes;
        const char* names;   // "name=value[data bytes];" per entry
    } cases[] = {
        {"count only", Blob().I32(2).bytes, ""}, {"no room for a length", {5, 0, 0, 0, 0}, ""},
        {"count 0", a(0).bytes, ""}, {"count below 0", a(-3).bytes, ""},
        {"count above the entries", a(9).Entry(u"B", u"2").bytes, "A=1;B=2;"},
        {"count below them", a(1).Entry(u"B", u"2").bytes, "A=1;"},
        {"negative length", a(3).I32(-1).Entry(u"B", u"2").bytes, "A=1;"},
        {"length beyond the end", a(3).I32(1000).Text(u"B").Text(u"2").bytes, "A=1;"},
        {"two stray bytes", a(3).Raw({0x10, 0}).bytes, "A=1;"},
        // A length of 4 or less: one entry with an empty name, and the end.
        {"length 4", a(3).I32(4).Entry(u"B", u"2").bytes, "A=1;=;"},
        {"length 3", a(3).I32(3).Entry(u"B", u"2").bytes, "A=1;=;"},
        {"length 0", a(3).I32(0).Entry(u"B", u"2").bytes, "A=1;=;"},
        {"name only", Blob().I32(2).I32(4 + 4).Text(u"N").Entry(u"B", u"2").bytes, "N=;"},
        // Without a NUL inside the length, the bytes go to Data.
        {"unterminated name", Blob().I32(2).I32(4 + 6).Text(u"abc", false).Entry(u"B", u"2").bytes,
         "=[a.b.c.];B=2;"},
        {"unterminated value", Blob().I32(1).I32(4 + 4 + 4).Text(u"N").Text(u"vw", false).bytes, "N=[v.w.];"},
        {"lone odd byte", Blob().I32(1).I32(4 + 4 + 1).Text(u"N").Raw({0}).bytes, "N=[.];"},
        {"NUL behind the name's share", Blob().I32(1).I32(4 + 2).Text(u"a", false).Text(u"").bytes, "=[a.];"},
    };
    for (const Case& c : cases) {
        IDTags tags;
        tags.Parse(c.bytes.data(), static_cast<int64_t>(c.bytes.size()));
        std::string text;
        for (int i = 0; i < tags.Count(); ++i) {
            text += tags[i].Name.ToUtf8() + "=" + tags[i].Value.ToUtf8();
            if (!tags[i].Data.Empty()) {
                text += "[";
                for (uint8_t byte : DataOf(tags[i])) text += byte ? static_cast<char>(byte) : '.';
                text += "]";
            }
            text += ";";
        }
        EXPECT_EQ(text, c.names) << c.what;
    }
    IDTags none;
    none.Add(S(u"stale"), S(u""));
    none.Parse(nullptr, 100);
    EXPECT_EQ(none.Count(), 0);
    EXPECT_EQ(none.Current, nullptr);
}

TEST(IDTags, FindComparesNamesAndStripsArtKeys) {
    IDTags tags;
    tags.Add(S(u"Title"), S(u"t"));
    tags.Add(S(u"_albumart_1_Front<subdesc>first"), S(u""));
    tags.Add(S(u"Artist<subdesc>x"), S(u""));
    tags.Add(S(u"\u00C9t\u00E9"), S(u""));

    EXPECT_EQ(tags.Find(S(u"TITLE"), false), &tags[0]);
    EXPECT_EQ(tags.Current, &tags[0]);
    EXPECT_EQ(tags.Find(S(u"\u00E9t\u00E9"), false), nullptr);   // only A to Z fold
    EXPECT_EQ(tags.Find(S(u"Titl"), false), nullptr);

    const clString other(u"_ALBUMART_1_front<subdesc>second");
    EXPECT_EQ(tags.Find(other, true), &tags[1]);
    EXPECT_EQ(tags.Find(other, false), nullptr);
    EXPECT_EQ(tags.Find(S(u"_albumart_1_front"), true), &tags[1]);
    // The marker itself is matched with case; other names are never cut.
    EXPECT_EQ(tags.Find(S(u"_albumart_1_Front<SUBDESC>first"), true), nullptr);
    EXPECT_EQ(tags.Find(S(u"Artist"), true), nullptr);

    EXPECT_EQ(NormalisedTagName(S(u"_AlbumArt_2_Back<subdesc>d<subdesc>e"), true), S(u"_AlbumArt_2_Back"));
    EXPECT_EQ(NormalisedTagName(S(u"_albumart_2_Back<subdesc>d"), false), S(u"_albumart_2_Back<subdesc>d"));
    EXPECT_EQ(NormalisedTagName(S(u"_albumart<subdesc>d"), true), S(u"_albumart<subdesc>d"));
}

TEST(IDTags, RemoveTakesEveryCaseAndKeepsTheOrder) {
    IDTags tags;
    for (const char16_t* name : {u"Artist", u"Title", u"ARTIST", u"Album", u"artist"}) tags.Add(S(name), S(name));
    EXPECT_EQ(tags.Current, &tags[4]);

    EXPECT_TRUE(tags.Remove(S(u"aRtIsT")));
    EXPECT_EQ(tags.Current, nullptr);
    ASSERT_EQ(tags.Count(), 2);
    EXPECT_EQ(tags[0].Value, S(u"Title"));
    EXPECT_EQ(tags[1].Value, S(u"Album"));
    EXPECT_FALSE(tags.Remove(S(u"Artist")));

    // Removal doesn't strip: an art key goes only under its full name.
    tags.Add(S(u"_albumart_1_Front<subdesc>d"), S(u""));
    EXPECT_FALSE(tags.Remove(S(u"_albumart_1_Front")));
    EXPECT_TRUE(tags.Remove(S(u"_ALBUMART_1_Front<subdesc>d")));

    tags.Find(S(u"Title"), false);
    tags.RemoveAt(1);
    tags.RemoveAt(5);                    // out of range: nothing
    EXPECT_EQ(tags.Current, &tags[0]);   // the cursor stays on a survivor
    EXPECT_EQ(tags.Count(), 1);
}

TEST(IDTags, TakeVersionRemovesOnlyTheFirst) {
    IDTags tags;
    EXPECT_TRUE(tags.TakeVersion().Empty());
    for (const char16_t* name : {u"Title", u"TagVersion", u"Album", u"tagversion"}) tags.Add(S(name), S(name));

    EXPECT_EQ(tags.TakeVersion(), S(u"TagVersion"));
    ASSERT_EQ(tags.Count(), 3);
    EXPECT_EQ(tags[1].Name, S(u"Album"));
    EXPECT_EQ(tags.TakeVersion(), S(u"tagversion"));
    EXPECT_EQ(tags.Count(), 2);
    EXPECT_TRUE(tags.TakeVersion().Empty());
}

TEST(IDTags, CopiesAreDeep) {
    IDTags tags;
    tags.AddBinary(S(u"Bin"), "\x01\x02", 2);
    tags.AddCopy(tags[0]);   // a copy of an own entry, whose storage may move meanwhile
    IDTags copy(tags);
    copy[1].Data.Data()[0] = 9;
    copy = static_cast<const IDTags&>(copy);   // self-assignment keeps everything
    ASSERT_EQ(copy.Count(), 2);
    EXPECT_EQ(DataOf(copy[1]), (Bytes{9, 2}));
    EXPECT_EQ(DataOf(tags[0]), (Bytes{1, 2}));
    EXPECT_EQ(DataOf(tags[1]), (Bytes{1, 2}));
}
