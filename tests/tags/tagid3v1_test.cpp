// The ID3v1 engine over real files: reading both versions, the field limits
// and genre rules of writing, and that only the last 128 bytes ever change.

#include <gtest/gtest.h>

#include <tuple>

#include "tagfixture.h"
#include "tags/tagid3v1.h"

using namespace tagtest;

namespace {

class ID3v1Test : public TagFileTest {
protected:
    std::string Read() { return ReadWith<TagID3v1>(path); }
    void Write(const IDTags& tags, bool merge, bool version10 = false) {
        EXPECT_TRUE(RunEngine<TagID3v1>(path, [&](TagID3v1& engine) {
            if (version10) engine.SetOption(S("ID3v1Write10"));
            return engine.Write(tags, merge);
        }));
        Tail();   // checks the audio
    }
};

}  // namespace

TEST_F(ID3v1Test, ReadsBothVersions) {
    Make("", Id3v1("  Song  ", "Anna; Bob", "Album", "1999", "note", 7, 17));
    EXPECT_EQ(Read(), "Title=Song;Artist=Anna|Bob;Album=Album;Year=1999;Comment=note;Genre=Rock;Track=7;"
                      "TagVersion=ID3v1.1;");
    // A comment of 30 bytes makes it ID3v1.0; genre 127 and above adds nothing.
    Make("", Id3v1("Caf\xE9", "", "", "", std::string(30, 'c'), 0, 127));
    EXPECT_EQ(Read(), "Title=Caf\xC3\xA9;Comment=" + std::string(30, 'c') + ";TagVersion=ID3v1.0;");
    Make("", Id3v1("", "", "", "", "", 0, 126));
    EXPECT_EQ(Read(), "Genre=Undefined;TagVersion=ID3v1.0;");
    Make("", Id3v1(""));
    EXPECT_EQ(Read(), "");

    // Too short for the 131 bytes that the test for a tag reads.
    Make("", "", 130);
    IDTags tags;
    EXPECT_FALSE(RunEngine<TagID3v1>(path, [&](TagID3v1& engine) { return engine.Read(tags, true); }, clFile::kRead));
}

TEST_F(ID3v1Test, WriteCutsFieldsAtTheirLimits) {
    Make("", Id3v1("old"));
    IDTags tags = Tags({{"title", std::string(31, 'T')}, {"Artist", "A\rB"}, {"Comment", std::string(30, 'c')},
                        {"Track", "5"}, {"Genre", "undefined\rRock"}});
    Write(tags, false);
    EXPECT_EQ(Tail(), Id3v1(std::string(30, 'T'), "A; B", "", "", std::string(28, 'c'), 5, 126));
    // ID3v1.0 ignores the track and keeps the whole comment.
    Write(tags, false, true);
    EXPECT_EQ(Tail(), Id3v1(std::string(30, 'T'), "A; B", "", "", std::string(30, 'c'), 0, 126));

    // Track 256 keeps the ID3v1.1 marker but stores 0: it reads back as no track.
    for (const auto& [genre, track, genreByte] : {std::tuple{"[No Genre]", "", 255}, {"no such genre", "", 255},
                                                  {"BLUES", "", 0}, {"", "256", 255}}) {
        Make("", Id3v1("x"));
        Write(Tags({{"Genre", genre}, {"Track", track}}), true);
        EXPECT_EQ(Tail(), Id3v1("x", "", "", "", "", 0, genreByte)) << genre << track;
    }
    // Merging keeps what the tag can't hold; a new track number shortens the comment to 28 bytes.
    std::string original = Id3v1("Title", "A; B", "Album", "2001", std::string(30, 'c'), 0, 17);
    Make("", original);
    Write(Tags({{"Composer", "nobody"}, {"_albumart_1_Media", ""}}), true);
    EXPECT_EQ(Tail(), original);
    Write(Tags({{"TRACK", "3"}}), true);
    EXPECT_EQ(Tail(), Id3v1("Title", "A; B", "Album", "2001", std::string(28, 'c'), 3, 17));
}

// Deleting through the flows, by name and whole: HostileApeTest and StdTagsTest.
TEST_F(ID3v1Test, EmptyValuesDeleteTheTag) {
    Make("", Id3v1("Title", "Artist"));
    Write(Tags({{"Title", ""}, {"Artist", ""}}), true);
    EXPECT_EQ(Tail(), "");
    // A tag whose fields are all blank is replaced in place, and stays when
    // there is nothing to write.
    Make("", Id3v1("  "));
    Write(Tags({{"Composer", "c"}}), true);
    EXPECT_EQ(Tail(), Id3v1("  "));
    Write(Tags({{"Title", "t"}}), true);
    EXPECT_EQ(Tail(), Id3v1("t"));
}
