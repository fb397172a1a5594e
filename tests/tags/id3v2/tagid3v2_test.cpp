// The writer (which old frames stay byte for byte, how the tag is rendered), and TagID3v2 over files:
// reading, the band-name repair, writes and deletes that never change the audio behind the tag.

#include <gtest/gtest.h>

#include "tags/id3v2/id3writer.h"
#include "tags/id3v2/tagid3v2.h"
#include "tags/stdtags.h"
#include "tests/tags/tagfixture.h"

using namespace id3parser;
using namespace tagtest;

namespace {

std::vector<uint8_t> Bytes(const std::string& text) { return {text.begin(), text.end()}; }

id3frame Old(const char (&id)[5], const std::string& body, uint32_t version = 3) { return FrameOf(id, body, version); }

// "ID:body;" per frame, with "*" in front of frames read from the file.
std::string Frames(const id3tag& tag) {
    std::string out;
    for (const id3frame& frame : tag.frames) {
        out += (frame.version ? "*" : "") + BigEndian(frame.id, 4) + ":";
        for (uint8_t b : frame.data) out += b >= 0x20 && b < 0x7F ? static_cast<char>(b) : '.';
        out += ";";
    }
    return out;
}

std::string Render(const id3tag& tag) {
    streamOutBuffer out;
    renderTag(tag, out, 0, 0, 1);
    return std::string(out.bytes.begin(), out.bytes.end());
}

class TagID3v2WriteTest : public TagFileTest {
protected:
    bool Write(const IDTags& tags, const char16_t* option = nullptr) {
        return RunEngine<TagID3v2>(path, [&](TagID3v2& engine) {
            if (option) engine.SetOption(clString(option));
            return engine.Write(tags, false);
        });
    }
    void Delete() { RunEngine<TagID3v2>(path, [](TagID3v2& engine) { engine.Delete(); }); }
};

}  // namespace

// Encodings, dates, multiple values and untouched frames of every kind the
// generated round trip writes: MutagenId3.
TEST(Id3Writer, KeepsWhatStillSaysTheSameAndRebuildsTheRest) {
    const std::string comm = std::string("\0eng", 4);
    const struct { uint32_t version; std::vector<id3frame> frames; TagValues values; std::string expected; WriteSettings settings = {}; } cases[] = {
        // Two comments give one name: a change in one rebuilds both.
        {3, {Old("COMM", comm + std::string("\0a", 2)), Old("COMM", comm + std::string("\0b", 2))}, {{"Comment", {"a", "c"}}},
         "3 COMM:.eng.a.;COMM:.eng.c.;"},
        // A 2.2 tag becomes 2.3 and keeps only pictures, comments and lyrics.
        {2, {Old("PRIV", "o"), Old("COMM", comm + "\0x"s, 2), Old("APIC", "\0i\0\x03\0p"s, 2), Old("TIT2", Text("t"), 2)},
         {{"Title", {"t"}}, {"Comment", {"x"}}}, "3 TIT2:.t.;*COMM:.eng.x;*APIC:.i...p;"},
        // An indexed user frame stays while its value does; a changed one is written anew.
        {3, {Old("TXXX", Text(std::string("Mood[2]\0calm", 12)))}, {{"Mood", {"calm"}}}, "3 *TXXX:.Mood[2].calm;"},
        {3, {Old("TXXX", Text(std::string("Mood[2]\0calm", 12)))}, {{"Mood", {"calm", "x"}}}, "3 TXXX:.Mood.calm.;TXXX:.Mood.x.;"},
        // An old frame that can't be read stays, unless a new one of its kind replaces it.
        {4, {Old("TIT2", "\x09x", 4), Old("TALB", "\x09x", 4)}, {{"Title", {"t"}}}, "4 TIT2:.t.;*TALB:.x;"},
        // What no frame can hold goes to user frames, one per value in 2.3, one with all values in 2.4.
        {3, {}, {{"Title", {"a", "b"}}}, "3 TXXX:.Title.a.;TXXX:.Title.b.;"},
        {4, {}, {{"Title", {"a", "b"}}}, "4 TXXX:.Title.a.b.;"}, {3, {}, {{"Track", {"1", "2"}}}, "3 TRCK:.1.;"},
        {3, {}, {{"Year", {"circa 2001"}}}, "3 TXXX:.Year.circa 2001.;"},   // never a non-year in TYER
        {3, {}, {{"Year", {"2001-03-02"}}}, "3 TYER:.2001-03-02.;", {0, 1, 0}},
        {4, {}, {{"Release date", {"2001/2002"}}}, "4 TDRL:.2001/2002.;"},
        {3, {}, {{"Title", {"\xC3\xA9"}}}, "3 TIT2:.......;", {3, 0, 0}},   // no UTF-8 before 2.4: UTF-16
        // Text that one byte can't hold: UTF-8 in 2.4, descriptions and track numbers included.
        {4, {}, {{"Comment \xCE\xA9", {"x"}}, {"Track", {"\xCE\xA9"}}}, "4 TRCK:....;COMM:.eng...x.;"},
        {3, {}, {{"Genre", {"Rock", "(x)"}}}, "3 TCON:.Rock;((x).;"},
        {3, {}, {{"Rating", {"8"}}}, "3 POPM:Windows Media Player 9 Series......;"}, {3, {}, {{"Rating", {"11"}}}, "3 TXXX:.Rating.11.;"},
        {3, {}, {{"Lyrics", {"la"}}, {"Official artist/performer webpage", {"http://a"}}}, "3 USLT:.eng.la.;WOAR:http://a;"},
        {3, {}, {{"Comment iTunNORM", {" 0A 1b"}}, {"User defined URL link home", {"http://h"}}},
         "3 COMM:.engiTunNORM. 0A 1b.;WXXX:...h.o.m.e...http://h;", {1, 0, 0}},
        {3, {}, {{"replaygain_track_gain", {"-1 dB", "x"}}, {"Soloists", {"a", "b"}}}, "3 TXXX:.replaygain_track_gain.-1 dB.;TXXX:.Soloists.a/b.;"},
        {3, {Old("TXXX", Text(std::string("replaygain_track_gain\0-1 dB", 27)))}, {{"replaygain_track_gain", {"-1 dB"}}},
         "3 *TXXX:.replaygain_track_gain.-1 dB;"},
    };
    for (const auto& c : cases) {
        id3tag tag = TagOf(c.version, c.frames);
        valuesToFrames(tag, c.values, c.settings);
        EXPECT_EQ(std::to_string(tag.version) + " " + Frames(tag), c.expected);
    }
}

TEST(Id3Writer, RendersFramesAndHeader) {
    id3tag tag = TagOf(3, {Old("TIT2", Text("t"), 0)});
    // A frame read from 2.4 without unsynchronisation is kept so, its stored bytes and flags byte for byte.
    tag.frames.push_back(Old("TALB", "\xFF\xE0", 4));
    tag.frames.back().statusFlags = 0x20;
    tag.frames.back().formatFlags = 0x03;
    tag.frames.back().stored = Bytes(BigEndian(2, 4) + "\xFF\0\xE0");
    tag.version = 4;
    EXPECT_EQ(Render(tag), Tag(4, Frame24("TIT2", Text("t")) + Frame24("TALB", BigEndian(2, 4) + "\xFF\0\xE0", 0x20, 0x03)));
    // From another version: scanned, unsynchronised by the frame's own flag, none tag-wide.
    const std::string body = std::string("\0image/png\0\x03\0\x01\xFF", 15);
    const id3tag picture = TagOf(4, {Old("APIC", body, 3)});
    EXPECT_EQ(Render(picture), Tag(4, Frame24("APIC", Synchsafe(15) + body + '\0', 0, 0x03)));
    EXPECT_EQ(Parse(Render(picture)).frames.front().data, Bytes(body));

    tag.version = 2;
    EXPECT_THROW(Render(tag), writeError);
    // Pictures go last, front covers first.
    tag = TagOf(3, {Old("APIC", std::string("\0m\0\x04\0b", 6)), Old("APIC", std::string("\0m\0\x03\0f", 6)), Old("APIC", "broken"),
               Old("TIT2", Text("t")), Old("APIC", std::string("\0m\0\x03\0g", 6))});
    orderPictures(tag);
    EXPECT_EQ(Frames(tag), "*TIT2:.t;*APIC:.m...f;*APIC:.m...g;*APIC:.m...b;*APIC:broken;");
}

using TagID3v2ReadTest = TagFileTest;

TEST_F(TagID3v2ReadTest, EntriesPicturesAndRepairs) {
    const auto ReadTags = [&](const std::string& bytes, bool wantVersion = true) { return WriteFile(path, bytes), ReadWith<TagID3v2>(path, wantVersion); };
    const std::string frames = Frame23("TPE1", Text("ac/dc")) + Frame23("TPE2", Text("A/B")) + Frame23("TSOP", Text("AC / DC")) +
                               Frame23("TXXX", Text("_hidden\0x"s)) + Frame23("APIC", "\0image/png\0\x03" "Cover\0front"s) +
                               Frame23("APIC", "\0image/png\0\x03"s) + Frame23("APIC", "\0image/png\0\0\0zero"s) +
                               Frame23("MCDI", "toc1") + Frame23("MCDI", "toc2");
    EXPECT_EQ(ReadTags(Tag(3, frames) + audio), "TagVersion=ID3v2.3;Album Artist=A|B;Artist=ac/dc;Artist Sort=AC/DC;"
              "_albumart_1_Front Album Cover<subdesc>Cover=[5 bytes];_albumart_2_Undefined=[4 bytes];_cdtoc=[4 bytes];");
    EXPECT_EQ(ReadTags(Tag(4, Frame24("TPE1", Text("ac/dc"))) + audio, false), "Artist=ac/dc;");
    EXPECT_EQ(ReadTags(Tag(2, Frame22("TT2", Text("t"))) + audio), "TagVersion=ID3v2.2;Title=t;");
    // A tag that shows nothing shows no version either.
    EXPECT_EQ(ReadTags(Tag(3, Frame23("PRIV", "o\1")) + audio), "");
    // No tag, a damaged header, an empty file: no entries, and no failure (two tags in a row: MutagenId3).
    for (const std::string& bytes : {audio, std::string("ID3\x03\0\0\0\0\x80\0", 10) + audio, std::string()}) EXPECT_EQ(ReadTags(bytes), "");
    // What a tag's header says it takes on disk (with a footer: DeletesAndRefusals).
    const std::pair<std::string, uint64_t> rows[] = {{Tag(3, "abc") + "audio", 13}, {"ID3\x07\0\0\0\0\0\x05"s, 15} /* the version isn't looked at */,
                                                     {"ID3\x03\0\0\0\0\x80\0"s, 0}, {"ID3\x03\0\x01\0\0\0\0"s, 0}};
    for (const auto& [bytes, size] : rows) {
        WriteFile(path, bytes);
        EXPECT_EQ(RunEngine<TagID3v2>(path, [](TagID3v2& tag) { return tag.tagSizeOnDisk(); }, clFile::kRead), size) << bytes;
    }
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"AC\rDC", u"AC/DC"}, {u"ac \r dc", u"ac / dc"}, {u"A\rB", u"A\rB"}, {u"Body\rHead", u"Body/Head"},
        {u"Vio\rMir\u00C9", u"Vio\rMir\u00C9"}, {u"M\rA\rR\rR\rS", u"M/A/R/R/S"}};
    for (const auto& [in, out] : cases) {
        clString value(in);
        TagID3v2::rejoinSlashName(value);
        EXPECT_TRUE(value == clString(out)) << Utf8(value);
    }
}

TEST_F(TagID3v2WriteTest, WritesWhatIsAskedAndKeepsTheRest) {
    IDTags noFront;
    noFront.AddBinary(S("_albumart_1_Front Album Cover"), nullptr, 0);
    // New frames `inFront` of the old ones, old frames `behind` them.
    const struct { std::string behind; IDTags tags; std::string inFront; const char16_t* option = nullptr; } cases[] = {
        {"", Tags({{"year", "2001-03-02"}}), Frame23("TYER", Text("2001-03-02") + '\0'), u"WriteFullDateInYearTag"},
        {"", Tags({{"comments", "b"}, {"comment", "a"}}), Frame23("COMM", "\0eng\0a\0"s) + Frame23("COMM", "\0eng\0b\0"s)},
        {Frame23("APIC", std::string("\0\0\x03\0p", 5)), noFront, ""},   // a picture without data deletes those of its type
    };
    for (const auto& c : cases) {
        Make(Tag(3, kOldFrames + c.behind));
        ASSERT_TRUE(Write(c.tags, c.option));
        EXPECT_EQ(Front(), Tag(3, c.inFront + kOldFrames));
    }
}

TEST_F(TagID3v2WriteTest, DeletesAndRefusals) {
    Make(kOld23);
    RunEngine<TagID3v2>(path, [](TagID3v2& engine) { engine.DeleteTag(S("Album")); });
    EXPECT_EQ(Front(), Tag(3, Frame23("TIT2", Text("Old")) + kPriv));
    ASSERT_TRUE(Write(Tags({{"Title", ""}})));
    EXPECT_EQ(Front(), Tag(3, kPriv));
    Delete();
    EXPECT_EQ(ReadFile(path), audio);

    // Deleting the last value deletes the whole tag.
    Make(Tag(3, Frame23("TIT2", Text("Old"))));
    ASSERT_TRUE(Write(Tags({{"Title", ""}})));
    EXPECT_EQ(ReadFile(path), audio);

    // Padding and a footer are the tag's: a rewrite or a delete takes them along.
    Make(Tag(3, Frame23("TIT2", Text("Old")) + std::string(100, '\0')));
    ASSERT_TRUE(Write(Tags({{"Title", "x"}})));
    EXPECT_EQ(Front(), Tag(3, Frame23("TIT2", Text("x") + '\0')));
    const std::string footed = Tag(4, Frame24("TIT2", Text("t")) + std::string(7, '\0'), 0x10);
    Make(footed + "3DI" + footed.substr(3, 7));
    Delete();
    EXPECT_EQ(ReadFile(path), audio);

    // A tag that doesn't parse, claims more than the file, or whose padding
    // isn't zeros: nothing is proven to be tag bytes, so nothing is cut.
    const std::string overrun = Tag(3, Frame23("TIT2", Text("t")) + "TALB" + BigEndian(1000, 4) + std::string(2, '\0'));
    const std::string tooLong = std::string("ID3\x03\0\0\0\x7F\x7F\x7F", 10) + Frame23("TIT2", Text("t"));
    const std::string junkPadding = Tag(3, Frame23("TIT2", Text("t")) + std::string(20, '\0') + "audio?");
    for (const std::string& tag : {overrun, tooLong, junkPadding, footed + "3DX" + footed.substr(3, 7)}) {
        Make(tag);
        EXPECT_EQ(Write(Tags({{"Title", "x"}})), tag == junkPadding);   // a write keeps junk padding: MutagenId3
        if (tag == junkPadding) Make(tag);
        EXPECT_TRUE(RunEngine<TagID3v2>(path, [](TagID3v2& engine) { return engine.Delete(), engine.Failure != nullptr; }));
        EXPECT_FALSE(DeleteStdTags(S(path), nullptr, log.Target()));
        EXPECT_EQ(ReadFile(path), tag + audio);
    }
    EXPECT_NE(log.Text().find("Could not delete ID3v2 tag  [DeleteStdTags]\r\nThe ID3v2 tag is damaged"), std::string::npos) << log.Text();
}
