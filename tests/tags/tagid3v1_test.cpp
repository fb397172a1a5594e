// The ID3v1 engine over real files: reading both versions, the field limits
// and genre rules of writing, and that only the last 128 bytes ever change.

#include <gtest/gtest.h>

#include "tagfixture.h"
#include "tags/tagid3v1.h"

using namespace tagtest;

namespace {

class ID3v1Test : public ::testing::Test {
protected:
    std::string Make(const std::string& tail, size_t audio = 1000) {
        WriteBytes(path, AudioBytes(audio) + tail);
        return path;
    }
    IDTags ReadBack(bool wantVersion = true) {
        clFile file = OpenFile(path, clFile::kRead);
        TagID3v1 engine(file);
        IDTags tags;
        EXPECT_TRUE(engine.Read(tags, wantVersion));
        return tags;
    }
    // Writes, then checks that the audio before the tag is untouched.
    void WriteTags(const IDTags& tags, bool merge, bool version10 = false) {
        std::string before = ReadBytes(path);
        clFile file = OpenFile(path);
        TagID3v1 engine(file);
        if (version10) engine.SetOption(S("ID3v1Write10"));
        EXPECT_TRUE(engine.Write(tags, merge));
        std::string after = ReadBytes(path);
        ASSERT_GE(after.size(), 1000u);
        EXPECT_EQ(after.substr(0, 1000), before.substr(0, 1000));
    }
    std::string Tail() const {
        std::string bytes = ReadBytes(path);
        return bytes.size() < 128 ? std::string() : bytes.substr(bytes.size() - 128);
    }

    TempDir dir;
    std::string path = dir.File("a.tak");
};

}  // namespace

TEST_F(ID3v1Test, ReadsBothVersions) {
    Id3v1 v11{"  Song  ", "Anna; Bob", "Album", "1999", "note", 7, 17};
    Make(v11.Bytes());
    EXPECT_EQ(Describe(ReadBack()), "Title=Song;Artist=Anna|Bob;Album=Album;Year=1999;Comment=note;"
                                    "Genre=Rock;Track=7;TagVersion=ID3v1.1;");

    // A comment of 30 bytes makes it ID3v1.0; genre 127 and above adds nothing.
    Id3v1 v10{"T", "", "", "", std::string(30, 'c'), 0, 127};
    Make(v10.Bytes());
    EXPECT_EQ(Describe(ReadBack()), "Title=T;Comment=" + std::string(30, 'c') + ";TagVersion=ID3v1.0;");

    // Genre 126 is "Undefined" and still readable; ANSI text converts.
    Id3v1 ansi{"Caf\xE9", "", "", "", "", 0, 126};
    Make(ansi.Bytes());
    EXPECT_EQ(Describe(ReadBack()), "Title=Caf\xC3\xA9;Genre=Undefined;TagVersion=ID3v1.0;");
}

TEST_F(ID3v1Test, BlankTagsAndShortFiles) {
    Make(Id3v1{}.Bytes());
    EXPECT_EQ(Describe(ReadBack()), "");

    // The magic of a 128-byte APE tag shows "TAG" at the same place.
    Make("APETAGEX" + std::string(120, 'x'));
    {
        clFile file = OpenFile(path, clFile::kRead);
        TagID3v1 engine(file);
        EXPECT_FALSE(engine.Exists());
    }

    Make("", 130);
    clFile file = OpenFile(path, clFile::kRead);
    TagID3v1 engine(file);
    IDTags tags;
    EXPECT_FALSE(engine.Read(tags, true));
    EXPECT_FALSE(engine.Exists());
}

TEST_F(ID3v1Test, WriteCutsFieldsAtTheirLimits) {
    Make(Id3v1{"old"}.Bytes());
    IDTags tags;
    tags.Add(S("title"), S(std::string(31, 'T').c_str()));
    tags.Add(S("Artist"), S("A\rB"));
    tags.Add(S("Comment"), S(std::string(30, 'c').c_str()));
    tags.Add(S("Track"), S("5"));
    tags.Add(S("Genre"), S("undefined\rRock"));
    WriteTags(tags, false);
    Id3v1 expected{std::string(30, 'T'), "A; B", "", "", std::string(28, 'c'), 5, 126};
    EXPECT_EQ(Tail(), expected.Bytes());
    EXPECT_EQ(ReadBytes(path).size(), 1128u);

    // Version 1.0 ignores the track and keeps the whole comment.
    WriteTags(tags, false, true);
    Id3v1 v10{std::string(30, 'T'), "A; B", "", "", std::string(30, 'c'), 0, 126};
    EXPECT_EQ(Tail(), v10.Bytes());
}

TEST_F(ID3v1Test, GenreAndTrackRules) {
    struct Case {
        const char* genre;
        const char* track;
        Id3v1 expected;
    } cases[] = {
        {"[No Genre]", "", Id3v1{"x"}},
        {"no such genre", "", Id3v1{"x"}},
        {"BLUES", "", Id3v1{"x", "", "", "", "", 0, 0}},
        // 256 keeps the ID3v1.1 marker but stores 0: it reads back as no track.
        {"", "256", Id3v1{"x", "", "", "", "", 0, 255}},
    };
    for (const Case& c : cases) {
        Make(Id3v1{"x"}.Bytes());
        IDTags tags;
        tags.Add(S("Genre"), S(c.genre));
        tags.Add(S("Track"), S(c.track));
        WriteTags(tags, true);
        std::string expected = c.expected.Bytes();
        EXPECT_EQ(Tail(), expected) << c.genre << c.track;
    }
}

TEST_F(ID3v1Test, MergeKeepsWhatTheTagCannotHold) {
    Id3v1 original{"Title", "A; B", "Album", "2001", std::string(30, 'c'), 0, 17};
    Make(original.Bytes());
    IDTags tags;
    tags.Add(S("Composer"), S("nobody"));
    tags.Add(S("_albumart_1_Media"), S(""));
    WriteTags(tags, true);
    EXPECT_EQ(Tail(), original.Bytes());

    // A new track number shortens the comment to 28 bytes.
    IDTags track;
    track.Add(S("TRACK"), S("3"));
    WriteTags(track, true);
    Id3v1 withTrack = original;
    withTrack.comment = std::string(28, 'c');
    withTrack.track = 3;
    EXPECT_EQ(Tail(), withTrack.Bytes());
}

TEST_F(ID3v1Test, EmptyValuesRemoveTheTag) {
    Make(Id3v1{"Title", "Artist"}.Bytes());
    IDTags tags;
    tags.Add(S("Title"), S(""));
    tags.Add(S("Artist"), S(""));
    WriteTags(tags, true);
    EXPECT_EQ(ReadBytes(path), AudioBytes(1000));

    // A tag whose fields are all empty isn't cut: the new tag goes behind it.
    Make(Id3v1{}.Bytes());
    IDTags title;
    title.Add(S("Title"), S("t"));
    WriteTags(title, true);
    EXPECT_EQ(ReadBytes(path), AudioBytes(1000) + Id3v1{}.Bytes() + Id3v1{"t"}.Bytes());
}

TEST_F(ID3v1Test, DeleteAndDeleteTag) {
    Make(Id3v1{"Title", "Artist"}.Bytes());
    {
        clFile file = OpenFile(path);
        TagID3v1 engine(file);
        engine.DeleteTag(S("nothing"));
        EXPECT_EQ(Tail(), (Id3v1{"Title", "Artist"}.Bytes()));
        engine.DeleteTag(S("TITLE"));
        EXPECT_EQ(Tail(), (Id3v1{"", "Artist"}.Bytes()));
        engine.Delete();
    }
    EXPECT_EQ(ReadBytes(path), AudioBytes(1000));
    clFile file = OpenFile(path);
    TagID3v1 engine(file);
    engine.Delete();   // no tag: nothing to cut
    EXPECT_EQ(ReadBytes(path), AudioBytes(1000));
}
