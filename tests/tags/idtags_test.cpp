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
            bytes.push_back(static_cast<uint8_t>(unit));
            bytes.push_back(static_cast<uint8_t>(unit >> 8));
        }
        if (terminated) bytes.insert(bytes.end(), {0, 0});
        return *this;
    }
    Blob& Raw(const Bytes& raw) {
        bytes.insert(bytes.end(), raw.begin(), raw.end());
        return *this;
    }
    // A well-formed entry.
    Blob& Entry(std::u16string_view name, std::u16string_view value, const Bytes& data = {}) {
        I32(static_cast<int32_t>(4 + 2 * (name.size() + 1) + 2 * (value.size() + 1) + data.size()));
        return Text(name).Text(value).Raw(data);
    }
};

IDTags Parsed(const Bytes& bytes) {
    IDTags tags;
    tags.Parse(bytes.data(), static_cast<int64_t>(bytes.size()));
    return tags;
}

Bytes DataOf(const IDTag& tag) { return Bytes(tag.Data.Data(), tag.Data.Data() + tag.Data.Size()); }

clString S(const char16_t* text) { return clString(text); }

}  // namespace

TEST(IDTags, SerialisedFormIsExact) {
    IDTags empty;
    clBuffer buffer;
    empty.Serialise(buffer);
    EXPECT_EQ(Bytes(buffer.Data(), buffer.Data() + buffer.Size()), (Bytes{0, 0, 0, 0}));

    IDTags tags;
    tags.Add(S(u"A"), S(u"\u00E9"));
    const uint8_t data[] = {0xFF, 0x00, 0x7F};
    tags.AddBinary(S(u""), data, 3);
    tags.Serialise(buffer);
    const Bytes expected = {2, 0, 0, 0,                       // count
                            12, 0, 0, 0, 'A', 0, 0, 0, 0xE9, 0, 0, 0,   // 4 + 4 + 4
                            11, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0x00, 0x7F};  // 4 + 2 + 2 + 3
    EXPECT_EQ(Bytes(buffer.Data(), buffer.Data() + buffer.Size()), expected);

    // A buffer with room enough keeps its storage.
    clBuffer roomy;
    roomy.Resize(4096);
    const uint8_t* storage = roomy.Data();
    tags.Serialise(roomy);
    EXPECT_EQ(roomy.Data(), storage);
    EXPECT_EQ(roomy.Size(), expected.size());
}

TEST(IDTags, SerialiseThenParseGivesEverythingBack) {
    IDTags tags;
    tags.Add(S(u"Title"), S(u"Caf\u00E9 \U0001D11E"));
    tags.Add(S(u"Artist"), S(u"One\rTwo"));
    tags.Add(S(u"Empty"), S(u""));
    tags.Add(S(u""), S(u"nameless"));
    Bytes picture(70000);
    for (size_t i = 0; i < picture.size(); ++i) picture[i] = static_cast<uint8_t>(i * 7);
    tags.AddBinary(S(u"_albumart_3_Front<subdesc>x"), picture.data(), static_cast<uint32_t>(picture.size()));
    tags.AddBinary(S(u"_cdtoc"), "\0\0\0", 3);
    IDTag* both = tags.Add(S(u"Both"), S(u"text"));
    both->Data.Assign("\x01\x00\x02", 3);

    clBuffer blob;
    tags.Serialise(blob);
    IDTags back;
    back.Parse(blob.Data(), blob.Size());
    ASSERT_EQ(back.Count(), tags.Count());
    for (int i = 0; i < tags.Count(); ++i) {
        EXPECT_EQ(back[i].Name, tags[i].Name) << i;
        EXPECT_EQ(back[i].Value, tags[i].Value) << i;
        EXPECT_EQ(DataOf(back[i]), DataOf(tags[i])) << i;
    }

    // The same blob at an odd address.
    Bytes shifted(blob.Size() + 1);
    std::memcpy(shifted.data() + 1, blob.Data(), blob.Size());
    IDTags odd;
    odd.Parse(shifted.data() + 1, blob.Size());
    ASSERT_EQ(odd.Count(), tags.Count());
    EXPECT_EQ(odd[0].Value, tags[0].Value);
    EXPECT_EQ(DataOf(odd[4]), picture);

    // Parse starts over.
    back.Parse(blob.Data(), blob.Size());
    EXPECT_EQ(back.Count(), tags.Count());
}

TEST(IDTags, ParseIsForgivingAtCountsAndLengths) {
    Blob two;
    two.I32(2).Entry(u"A", u"1").Entry(u"B", u"2");

    // Four bytes or fewer: empty, whatever the count says.
    EXPECT_EQ(Parsed(Bytes(two.bytes.begin(), two.bytes.begin() + 4)).Count(), 0);
    EXPECT_EQ(Parsed({5, 0, 0, 0, 0}).Count(), 0);   // 5 bytes: no room for an entry length
    IDTags none;
    none.Add(S(u"stale"), S(u""));
    none.Parse(nullptr, 100);
    EXPECT_EQ(none.Count(), 0);
    EXPECT_EQ(none.Current, nullptr);

    // A count of 0 or below reads nothing.
    Blob zero;
    zero.I32(0).Entry(u"A", u"1");
    EXPECT_EQ(Parsed(zero.bytes).Count(), 0);
    Blob negative;
    negative.I32(-3).Entry(u"A", u"1");
    EXPECT_EQ(Parsed(negative.bytes).Count(), 0);

    // A count above the entries ends at the end of the bytes.
    Blob more;
    more.I32(9).Entry(u"A", u"1").Entry(u"B", u"2");
    EXPECT_EQ(Parsed(more.bytes).Count(), 2);
    // A count below them leaves the rest unread.
    Blob fewer;
    fewer.I32(1).Entry(u"A", u"1").Entry(u"B", u"2");
    EXPECT_EQ(Parsed(fewer.bytes).Count(), 1);

    // A negative length or one beyond the end stops; entries before it stay.
    Blob badLength;
    badLength.I32(3).Entry(u"A", u"1").I32(-1).Entry(u"B", u"2");
    EXPECT_EQ(Parsed(badLength.bytes).Count(), 1);
    Blob tooLong;
    tooLong.I32(3).Entry(u"A", u"1").I32(1000).Text(u"B").Text(u"2");
    EXPECT_EQ(Parsed(tooLong.bytes).Count(), 1);

    // Two stray bytes behind the last entry are not read as a length.
    Blob stray;
    stray.I32(3).Entry(u"A", u"1").Raw({0x10, 0});
    EXPECT_EQ(Parsed(stray.bytes).Count(), 1);
}

TEST(IDTags, ParseKeepsTheEntryItGaveUpOn) {
    // A length of 4 (or less): one entry with an empty name, and the end.
    for (int32_t length : {4, 3, 0}) {
        Blob b;
        b.I32(3).Entry(u"A", u"1").I32(length).Entry(u"B", u"2");
        const IDTags tags = Parsed(b.bytes);
        ASSERT_EQ(tags.Count(), 2) << length;
        EXPECT_TRUE(tags[1].Name.Empty());
        EXPECT_TRUE(tags[1].Data.Empty());
    }

    // A name with nothing behind it: the entry stays with an empty value.
    Blob nameOnly;
    nameOnly.I32(2).I32(4 + 4).Text(u"N").Entry(u"B", u"2");
    IDTags tags = Parsed(nameOnly.bytes);
    ASSERT_EQ(tags.Count(), 1);
    EXPECT_EQ(tags[0].Name, S(u"N"));
    EXPECT_TRUE(tags[0].Value.Empty());

    // No NUL inside the length: name and value stay empty, the bytes go to Data.
    Blob unterminated;
    unterminated.I32(2).I32(4 + 6).Text(u"abc", false).Entry(u"B", u"2");
    tags = Parsed(unterminated.bytes);
    ASSERT_EQ(tags.Count(), 2);
    EXPECT_TRUE(tags[0].Name.Empty());
    EXPECT_TRUE(tags[0].Value.Empty());
    EXPECT_EQ(DataOf(tags[0]), (Bytes{'a', 0, 'b', 0, 'c', 0}));
    EXPECT_EQ(tags[1].Name, S(u"B"));

    // A terminated name and an unterminated value: the value's bytes are Data.
    Blob noValueEnd;
    noValueEnd.I32(1).I32(4 + 4 + 4).Text(u"N").Text(u"vw", false);
    tags = Parsed(noValueEnd.bytes);
    ASSERT_EQ(tags.Count(), 1);
    EXPECT_EQ(tags[0].Name, S(u"N"));
    EXPECT_TRUE(tags[0].Value.Empty());
    EXPECT_EQ(DataOf(tags[0]), (Bytes{'v', 0, 'w', 0}));

    // The NUL is looked for among whole units only: a lone odd byte is Data.
    Blob odd;
    odd.I32(1).I32(4 + 4 + 1).Text(u"N").Raw({0});
    tags = Parsed(odd.bytes);
    ASSERT_EQ(tags.Count(), 1);
    EXPECT_TRUE(tags[0].Value.Empty());
    EXPECT_EQ(DataOf(tags[0]), (Bytes{0}));

    // A NUL found behind the name's share of the length is not the name's.
    Blob shortName;
    shortName.I32(1).I32(4 + 2).Text(u"a", false).Text(u"");
    tags = Parsed(shortName.bytes);
    ASSERT_EQ(tags.Count(), 1);
    EXPECT_TRUE(tags[0].Name.Empty());
    EXPECT_EQ(DataOf(tags[0]), (Bytes{'a', 0}));
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
    tags.Add(S(u"Artist"), S(u"1"));
    tags.Add(S(u"Title"), S(u"2"));
    tags.Add(S(u"ARTIST"), S(u"3"));
    tags.Add(S(u"Album"), S(u"4"));
    tags.Add(S(u"artist"), S(u"5"));
    EXPECT_EQ(tags.Current, &tags[4]);

    EXPECT_TRUE(tags.Remove(S(u"aRtIsT")));
    EXPECT_EQ(tags.Current, nullptr);
    ASSERT_EQ(tags.Count(), 2);
    EXPECT_EQ(tags[0].Value, S(u"2"));
    EXPECT_EQ(tags[1].Value, S(u"4"));
    EXPECT_EQ(tags.Find(S(u"Artist"), false), nullptr);
    EXPECT_FALSE(tags.Remove(S(u"Artist")));

    // Removal doesn't strip: an art key goes only under its full name.
    tags.Add(S(u"_albumart_1_Front<subdesc>d"), S(u""));
    EXPECT_FALSE(tags.Remove(S(u"_albumart_1_Front")));
    EXPECT_TRUE(tags.Remove(S(u"_ALBUMART_1_Front<subdesc>d")));

    tags.Find(S(u"Title"), false);
    tags.RemoveAt(1);
    EXPECT_EQ(tags.Current, &tags[0]);   // the cursor stays on a survivor
    tags.RemoveAt(5);                    // out of range: nothing
    EXPECT_EQ(tags.Count(), 1);
    tags.Clear();
    EXPECT_EQ(tags.Count(), 0);
    EXPECT_EQ(tags.Current, nullptr);
}

TEST(IDTags, TakeVersionRemovesOnlyTheFirst) {
    IDTags tags;
    EXPECT_TRUE(tags.TakeVersion().Empty());
    tags.Add(S(u"Title"), S(u"t"));
    tags.Add(S(u"TagVersion"), S(u"ID3v2.3"));
    tags.Add(S(u"Album"), S(u"a"));
    tags.Add(S(u"tagversion"), S(u"APEv2"));

    EXPECT_EQ(tags.TakeVersion(), S(u"ID3v2.3"));
    ASSERT_EQ(tags.Count(), 3);
    EXPECT_EQ(tags[1].Name, S(u"Album"));
    EXPECT_EQ(tags.TakeVersion(), S(u"APEv2"));
    EXPECT_EQ(tags.Count(), 2);
    EXPECT_TRUE(tags.TakeVersion().Empty());
}

TEST(IDTags, CopiesAreDeep) {
    IDTags tags;
    tags.AddBinary(S(u"Bin"), "\x01\x02", 2);
    tags[0].Name.tag = 42;
    tags.AddCopy(tags[0]);   // a copy of an own entry
    ASSERT_EQ(tags.Count(), 2);
    EXPECT_NE(tags[1].Data.Data(), tags[0].Data.Data());
    EXPECT_EQ(tags[1].Name.tag, 42u);

    IDTags copy(tags);
    copy[0].Data.Data()[0] = 9;
    copy[0].Value = S(u"changed");
    EXPECT_EQ(tags[0].Data.Data()[0], 1);
    EXPECT_TRUE(tags[0].Value.Empty());

    IDTags assigned;
    assigned.Add(S(u"old"), S(u""));
    assigned = copy;
    ASSERT_EQ(assigned.Count(), 2);
    EXPECT_EQ(assigned[0].Value, S(u"changed"));
    const IDTags& alias = assigned;
    assigned = alias;   // self-assignment keeps everything
    EXPECT_EQ(assigned.Count(), 2);
}
