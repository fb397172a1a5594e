// The writer: which old frames are kept byte for byte, which are rebuilt,
// what the builders make of values, and how the tag is rendered.

#include <gtest/gtest.h>

#include "tests/tags/tagfixture.h"
#include "tags/id3v2/id3writer.h"

using namespace id3parser;
using namespace tagtest;

namespace {

std::vector<uint8_t> Bytes(const std::string& text) { return {text.begin(), text.end()}; }

id3frame Old(const char (&id)[5], const std::string& body, uint32_t version = 3) {
    id3frame frame;
    frame.id = frameId(id);
    frame.data.assign(body.begin(), body.end());
    frame.version = version;
    return frame;
}

std::string IdText(uint32_t id) {
    return {static_cast<char>(id >> 24), static_cast<char>(id >> 16), static_cast<char>(id >> 8), static_cast<char>(id)};
}

// "ID:body;" per frame, with "*" in front of frames read from the file.
std::string Frames(const id3tag& tag) {
    std::string out;
    for (const id3frame& frame : tag.frames) {
        out += (frame.version ? "*" : "") + IdText(frame.id) + ":";
        for (uint8_t b : frame.data) out += b >= 0x20 && b < 0x7F ? static_cast<char>(b) : '.';
        out += ";";
    }
    return out;
}

std::string Reconcile(uint32_t version, std::vector<id3frame> frames, const TagValues& values,
                      WriteSettings settings = {}) {
    id3tag tag;
    tag.version = version;
    tag.frames.assign(frames.begin(), frames.end());
    valuesToFrames(tag, values, settings);
    return std::to_string(tag.version) + " " + Frames(tag);
}

std::string Render(const id3tag& tag) {
    streamOutBuffer out;
    renderTag(tag, out, 0, 0, 1);
    return std::string(out.bytes.begin(), out.bytes.end());
}

}  // namespace

TEST(Id3Writer, KeepsWhatStillSaysTheSameAndRebuildsTheRest) {
    const std::string comm = std::string("\0eng", 4);
    const id3frame priv = Old("PRIV", std::string("owner\0\x01\x02", 8));
    struct {
        uint32_t version;
        std::vector<id3frame> frames;
        TagValues values;
        std::string expected;
        WriteSettings settings = {};
    } cases[] = {
        // Two comments give one name: a change in one rebuilds both.
        {3, {Old("COMM", comm + std::string("\0a", 2)), Old("COMM", comm + std::string("\0b", 2))},
         {{"Comment", {"a", "c"}}}, "3 COMM:.eng.a.;COMM:.eng.c.;"},
        // A 2.2 tag becomes 2.3 and keeps only pictures, comments and lyrics.
        {2, {priv, Old("COMM", comm + std::string("\0x", 2), 2), Old("APIC", std::string("\0i\0\x03\0p", 6), 2),
             Old("TIT2", Text("t"), 2)},
         {{"Title", {"t"}}, {"Comment", {"x"}}}, "3 TIT2:.t.;*COMM:.eng.x;*APIC:.i...p;"},
        // An indexed user frame stays while its value does; a changed one is written anew.
        {3, {Old("TXXX", Text(std::string("Mood[2]\0calm", 12)))}, {{"Mood", {"calm"}}}, "3 *TXXX:.Mood[2].calm;"},
        {3, {Old("TXXX", Text(std::string("Mood[2]\0calm", 12)))}, {{"Mood", {"calm", "x"}}},
         "3 TXXX:.Mood.calm.;TXXX:.Mood.x.;"},
        // Frames whose names keep their values stay byte for byte (more: MutagenId3), BOM-less UTF-16 too.
        {3, {Old("TIT2", std::string("\x01" "A\0B\0", 5)), Old("TALB", Text("a"))}, {{"Title", {"AB"}}, {"Album", {"new"}}},
         "3 TALB:.new.;*TIT2:.A.B.;"},
        // An old frame that can't be read stays, unless a new one of its kind replaces it.
        {4, {Old("TIT2", std::string("\x09" "x", 2), 4), Old("TALB", std::string("\x09" "x", 2), 4)}, {{"Title", {"t"}}},
         "4 TIT2:.t.;*TALB:.x;"},
        // What no frame can hold goes to user frames, one per value in 2.3, one with all values in 2.4.
        {3, {}, {{"Title", {"a", "b"}}}, "3 TXXX:.Title.a.;TXXX:.Title.b.;"},
        {4, {}, {{"Title", {"a", "b"}}}, "4 TXXX:.Title.a.b.;"}, {3, {}, {{"Track", {"1", "2"}}}, "3 TRCK:.1.;"},
        {3, {}, {{"Year", {"circa 2001"}}}, "3 TXXX:.Year.circa 2001.;"},   // never a non-year in TYER
        {3, {}, {{"Year", {"2001-03-02"}}}, "3 TYER:.2001-03-02.;", {0, 1, 0}},
        {4, {}, {{"Year", {"2001-03-02T10:11"}}, {"Release date", {"2001/2002"}}},
         "4 TDRC:.2001-03-02T10:11.;TDRL:.2001/2002.;"},
        {3, {}, {{"Title", {"\xC3\xA9"}}}, "3 TIT2:.......;", {3, 0, 0}},   // no UTF-8 before 2.4: UTF-16
        // Text that one byte can't hold: UTF-8 in 2.4, descriptions and track numbers included.
        {4, {}, {{"Comment \xCE\xA9", {"x"}}, {"Track", {"\xCE\xA9"}}}, "4 TRCK:....;COMM:.eng...x.;"},
        {3, {}, {{"Genre", {"Rock", "(x)"}}, {"Artist", {"A", "B"}}}, "3 TCON:.Rock;((x).;TPE1:.A/B.;"},
        {3, {}, {{"Rating", {"8"}}}, "3 POPM:Windows Media Player 9 Series......;"},
        {3, {}, {{"Rating", {"11"}}}, "3 TXXX:.Rating.11.;"},
        {3, {}, {{"Lyrics", {"la"}}, {"Official artist/performer webpage", {"http://a"}}},
         "3 USLT:.eng.la.;WOAR:http://a;"},
        {3, {}, {{"Comment iTunNORM", {" 0A 1b"}}, {"User defined URL link home", {"http://h"}}},
         "3 COMM:.engiTunNORM. 0A 1b.;WXXX:...h.o.m.e...http://h;", {1, 0, 0}},
        {3, {}, {{"replaygain_track_gain", {"-1 dB", "x"}}, {"Soloists", {"a", "b"}}},
         "3 TXXX:.replaygain_track_gain.-1 dB.;TXXX:.Soloists.a/b.;"},
        {3, {Old("TXXX", Text(std::string("replaygain_track_gain\0-1 dB", 27)))}, {{"replaygain_track_gain", {"-1 dB"}}},
         "3 *TXXX:.replaygain_track_gain.-1 dB;"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Reconcile(c.version, c.frames, c.values, c.settings), c.expected) << c.expected;
    }
}

TEST(Id3Writer, RendersFramesAndHeader) {
    id3tag tag;
    tag.version = 3;
    tag.frames.push_back(Old("TIT2", Text("t"), 0));
    EXPECT_EQ(Render(tag), Tag(3, Frame23("TIT2", Text("t"))));
    tag.frames.push_back(Old("TALB", "\xFF\xE0", 4));   // read from 2.4 without unsynchronisation: kept so
    tag.frames.back().statusFlags = 0x20;
    tag.frames.back().formatFlags = 0x03;   // and its stored bytes with their flags, byte for byte
    tag.frames.back().stored = Bytes(BigEndian(2, 4) + "\xFF\0\xE0");
    tag.version = 4;
    EXPECT_EQ(Render(tag), Tag(4, Frame24("TIT2", Text("t")) + Frame24("TALB", BigEndian(2, 4) + "\xFF\0\xE0", 0x20, 0x03)));

    id3tag picture;
    picture.version = 4;
    const std::string body = std::string("\0image/png\0\x03\0\x01\xFF", 15);
    picture.frames.push_back(Old("APIC", body, 3));   // from another version: scanned
    const std::string synced = std::string("\0image/png\0\x03\0\x01\xFF\0", 16);
    EXPECT_EQ(Render(picture), Tag(4, Frame24("APIC", Synchsafe(15) + synced, 0, 0x03)));   // no tag-wide flag
    EXPECT_EQ(ValuesOf(Parse(Render(picture))), "");
    EXPECT_EQ(Parse(Render(picture)).frames.front().data, std::vector<uint8_t>(body.begin(), body.end()));

    tag.version = 2;
    EXPECT_THROW(Render(tag), writeError);
    streamOutBuffer sink;
    EXPECT_THROW(writeSynchsafe(sink, 0x10000000), writeError);
    writeSynchsafe(sink, 0x0FFFFFFF);
    EXPECT_EQ(sink.bytes, std::vector<uint8_t>(4, 0x7F));
}

TEST(Id3Writer, PicturesGoLastFrontCoversFirst) {
    id3tag tag;
    tag.version = 3;
    tag.frames.push_back(Old("APIC", std::string("\0m\0\x04\0b", 6)));
    tag.frames.push_back(Old("APIC", std::string("\0m\0\x03\0f", 6)));
    tag.frames.push_back(Old("APIC", "broken"));
    tag.frames.push_back(Old("TIT2", Text("t")));
    tag.frames.push_back(Old("APIC", std::string("\0m\0\x03\0g", 6)));
    orderPictures(tag);
    EXPECT_EQ(Frames(tag), "*TIT2:.t;*APIC:.m...f;*APIC:.m...g;*APIC:.m...b;*APIC:broken;");
}
