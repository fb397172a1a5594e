// The ID3v2 parser over hand-made layouts (each version's frame loop,
// unsynchronisation, extended headers, skipped frames, damage), and frame
// bodies to named values: encodings, multi-value splitting by version,
// genres, dates, ratings and the user frames.

#include <gtest/gtest.h>

#include "tags/id3v2/id3text.h"
#include "tests/tags/tagfixture.h"

using namespace id3parser;
using namespace tagtest;

TEST(Id3Parser, HandMadeLayouts) {
    const std::string title23 = Frame23("TIT2", Text("t")), png = "\x89PNG\r\n\x1A\n";
    // Text that holds 0xFF followed by 0xE0 needs unsynchronisation: "\xFF\xE0" is y-umlaut, a-grave.
    const std::string syncText = Text("\xFF\xE0 \xFF");
    const std::string v24Synced = Frame24("TIT2", Synchsafe(static_cast<uint32_t>(syncText.size())) + Unsynchronise(syncText), 0, 0x03);
    const struct { std::string bytes; uint32_t version; std::string values; } layouts[] = {
        {Tag(2, Frame22("TT2", Text("t")) + Frame22("TP1", Text("a/b")) + Frame22("PIC", std::string("\0PNG\x03" "d\0", 7) + png) +
                    Frame22("ULT", Text("lost"))), 2, "Artist=a|b;Title=t;"},
        {Tag(4, v24Synced + Frame24("TALB", Text("al"))), 4, "Album=al;Title=\xC3\xBF\xC3\xA0 \xC3\xBF;"},   // with a length indicator
        {Tag(3, BigEndian(6, 4) + std::string(6, '\x01') + title23, 0x40), 3, "Title=t;"},   // extended headers
        {Tag(4, Synchsafe(6) + std::string("\x01\x00", 2) + Frame24("TIT2", Text("t")), 0x40), 4, "Title=t;"},
        // Compressed, encrypted (and in 2.4 read-only) frames are skipped.
        {Tag(3, Frame23("TALB", Text("zzzz"), 0, 0x80) + Frame23("TPE1", Text("e"), 0, 0x40) + title23), 3, "Title=t;"},
        {Tag(4, Frame24("TALB", BigEndian(9, 4) + "zz", 0, 0x09) + Frame24("TPE1", Text("e"), 0, 0x04) + Frame24("TCOM", Text("c"), 0x10, 0) +
                    Frame24("TIT2", Text("t"))), 4, "Title=t;"},
        {Tag(3, Frame23(std::string("TT2\0", 4), Text("t")) + Frame23(std::string("XYZ\0", 4), Text("?"))), 3, "Title=t;"},   // three letters in 2.3
        {Tag(3, Frame23("TALB", "") + title23), 3, "Title=t;"},   // zero-size frames are passed over
    };
    for (const auto& layout : layouts) {
        id3tag tag;
        ASSERT_NO_THROW(tag = Parse(layout.bytes)) << layout.values;
        EXPECT_EQ(tag.version, layout.version);
        EXPECT_EQ(ValuesOf(tag), layout.values);
    }
    const id3tag v22 = Parse(layouts[0].bytes);
    ASSERT_EQ(v22.frames.size(), 4u);
    const id3frame& picture = *std::next(v22.frames.begin(), 2);
    EXPECT_EQ(picture.id, frameId("APIC"));
    const std::string apic = std::string("\0image/png\0\x03" "d\0", 14) + png;
    EXPECT_EQ(picture.data, std::vector<uint8_t>(apic.begin(), apic.end()));
    EXPECT_EQ(v22.frames.back().id, 0u);   // "ULT" has no four-letter form
    const id3tag compressed = Parse(layouts[4].bytes);   // kept unread, to be written back as they are
    ASSERT_EQ(compressed.frames.size(), 3u);
    EXPECT_TRUE(compressed.frames.front().opaque && compressed.frames.front().data.empty());
    EXPECT_EQ(compressed.frames.front().stored, std::vector<uint8_t>({0, 'z', 'z', 'z', 'z'}));
}

TEST(Id3Parser, DamageIsRejectedOrStaysLocal) {
    const std::string title = Frame23("TIT2", Text("t"));
    // Not a tag, an unknown version, a size byte with its top bit, 2.2 compression, unknown flags, too short.
    for (const std::string& bytes : {"ID2" + Tag(3, title).substr(3), Tag(5, title), Tag(3, title).substr(0, 9) + "\x80" + title,
                                     Tag(2, Frame22("TT2", Text("t")), 0x40), Tag(3, title, 0x10), Tag(4, title, 0x08), std::string("ID3\x03")}) {
        EXPECT_THROW(Parse(bytes), parseError) << bytes;
    }
    EXPECT_NO_THROW(Parse(Tag(3, title, 0x20)));
    EXPECT_NO_THROW(Parse(Tag(4, title, 0x10)));
    // Nothing behind the declared size is read: the second frame lies outside.
    EXPECT_EQ(ValuesOf(Parse(Tag(3, title) + Frame23("TALB", Text("outside")))), "Title=t;");

    // A frame that runs past the tag, or a damaged frame header, ends the
    // frames: those in front of it are read, and the tag says it's damaged.
    const std::string damaged[] = {
        Tag(3, title + Frame23("TALB", Text("t")).substr(0, 7) + "\x40" + std::string("\0\0t", 3)),
        Tag(3, title + "TALB" + BigEndian(0x4000000, 4) + std::string("\0\0", 2)),
        Tag(3, Unsynchronise(title) + Frame23("TALB", Text("\xFF\xE0")), 0x80),   // a pair unsynchronisation never leaves
        Tag(3, Unsynchronise(title) + Frame23("TALB", Text("a\xFF")), 0x80),      // 0xFF at the very end
        Tag(4, Frame24("TIT2", Text("t")) + "TALB\0\0\x80\0\0\0al"), Tag(3, title + "tit2" + BigEndian(1, 4) + std::string("\0\0t", 3)),
    };
    for (const std::string& bytes : damaged) {
        const id3tag tag = Parse(bytes);
        EXPECT_EQ(ValuesOf(tag), "Title=t;") << bytes;
        EXPECT_NE(tag.damage, nullptr) << bytes;
    }
    // A bad frame body costs that frame only.
    const std::string frames = Frame23("TALB", Text("al")) + Frame23("TIT2", Text("bad", 4)) + Frame23("TPE1", Text("ar")) +
                               Frame23("POPM", "x") + Frame23("WOAR", "");
    EXPECT_EQ(ValuesOf(Parse(Tag(3, frames))), "Album=al;Artist=ar;");
}

namespace {

std::string Utf16(const std::u16string& text, bool bigEndian) {
    std::string out = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (char16_t c : text) out += bigEndian ? std::string{char(c >> 8), char(c & 0xFF)} : std::string{char(c & 0xFF), char(c >> 8)};
    return out;
}
const std::string kNul16("\0\0", 2);

id3frame Frame(const char (&id)[5], const std::string& body) { return FrameOf(id, body); }

}  // namespace

// What the generated round trip against mutagen doesn't reach (it writes TYER, TDAT, TIME in that order):
// big-endian UTF-16 with a BOM, bytes that aren't UTF-8 under encoding 3, several strings in a 2.3 frame.
TEST(Id3Values, GenresDatesRatingsAndUserFrames) {
    const std::string comm = std::string("\0eng", 4);
    const std::u16string cafe = u"Caf\u00E9 \u263A";
    const std::string cafeUtf8 = "Caf\xC3\xA9 \xE2\x98\xBA";
    const struct { uint32_t version; std::vector<id3frame> frames; std::string values; } cases[] = {
        {3, {Frame("TIT2", "\x01" + Utf16(cafe, true))}, "Title=" + cafeUtf8 + ";"},
        {4, {Frame("TIT2", "\x03" "Caf\xE9")}, "Title=" + cafeUtf8.substr(0, 5) + ";"},   // not UTF-8: ANSI
        {4, {Frame("TPE1", "\x01" + Utf16(u"A", false) + kNul16 + Utf16(u"B", true))}, "Artist=A|B;"},
        {3, {Frame("TPE1", Text(std::string("A/B\0C", 5)))}, "Artist=A/B|C;"},   // two strings: no split
        {3, {Frame("WOAR", "http://x\0junk")}, "Official artist/performer webpage=http://x;"},
        // Genres, dates, ratings and user frames.
        {3, {Frame("TCON", Text("200"))}, "Genre=200;"}, {3, {Frame("TCON", Text("(200)"))}, ""}, {3, {Frame("TCON", Text("(RX)"))}, "Genre=Remix;"},
        {3, {Frame("TCON", Text("(CR)"))}, "Genre=Cover;"}, {3, {Frame("TCON", Text("((Live)"))}, "Genre=(Live);"},
        {3, {Frame("TCON", Text("(17)(18)"))}, "Genre=Rock;"}, {4, {Frame("TCON", Text("Rock; Pop"))}, "Genre=Rock; Pop;"},
        {3, {Frame("TDAT", Text("0203")), Frame("TYER", Text("2001"))}, "Year=2001-03-02;"},
        {3, {Frame("TDAT", Text("0203"))}, "Year=0000-03-02;"},
        {3, {Frame("TDAT", Text("0003")), Frame("TYER", Text("2001")), Frame("TIME", Text("1011"))}, "Year=2001-03;"},
        {3, {Frame("TDAT", Text("0203")), Frame("TIME", Text("1011")), Frame("TYER", Text("2001"))}, "Year=2001-03-02T10:11;"},
        {3, {Frame("TYER", Text("2001")), Frame("TDRC", Text("2001"))}, "Year=2001;"},
        {3, {Frame("TYER", Text("2001")), Frame("TDRC", Text("2002"))}, "Year=2001|2002;"},
        {3, {Frame("POPM", std::string("\0\xC5", 2)), Frame("POPM", std::string("\0\x00", 2))}, "Rating=9;"},
        {3, {Frame("COMM", comm + std::string("iTunNORM\0 0A", 12))}, "Comment iTunNORM= 0A;"},
        {3, {Frame("TXXX", Text(std::string("replaygain_track_gain\0none", 26)))}, ""},
        {3, {Frame("TXXX", Text(std::string("REPLAYGAIN_TRACK_GAIN\0-1.5 dB", 29)))}, "REPLAYGAIN_TRACK_GAIN=-1.5 dB;"},
        {3, {Frame("TXXX", Text("lonely"))}, ""},
    };
    for (const auto& c : cases) EXPECT_EQ(ValuesOf(TagOf(c.version, c.frames)), c.values);
}

TEST(Id3Values, FrameTextWalksStrings) {
    const id3frame frame = Frame("TXXX", Text("a\0\0b\0c"s));
    EXPECT_EQ(frameTextCount(frame), 4u);   // the run of NULs counts twice
    TextCursor cursor;
    std::string out, all;
    for (uint64_t i : {0, 1, 2, 3, 1}) {   // back to 1: the cursor starts over
        frameText(frame, false, out, i, cursor);
        all += out + ";";
    }
    EXPECT_EQ(all, "a;b;c;;b;");
    EXPECT_THROW(frameTextCount(Frame("TIT2", std::string(1026, '\0'))), parseError);
    EXPECT_THROW(frameTextCount(Frame("COMM", "\0en"s)), parseError);
    uint8_t type = 0;
    const uint8_t* image = nullptr;
    uint64_t size = 0;
    const std::string picture = "\x01image/png\0\x16" "d\0\0\0PIX"s;
    pictureFields(reinterpret_cast<const uint8_t*>(picture.data()), picture.size(), type, image, size);
    EXPECT_EQ(std::to_string(type) + std::string(reinterpret_cast<const char*>(image), size), "0PIX");   // 22 is beyond the table
}
