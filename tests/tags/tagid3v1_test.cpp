// The ID3v1 engine over real files: reading both versions, the field limits
// and genre rules of writing, and that only the last 128 bytes ever change.

#include <gtest/gtest.h>

#include "tagfixture.h"
#include "tags/tagid3v1.h"

using namespace tagtest;

namespace {

class ID3v1Test : public TagFileTest {
protected:
    std::string Read() { return ReadWith<TagID3v1>(path); }
};

}  // namespace

// Fields, track and genre as both versions hold them (what mutagen writes: MutagenApe).
TEST_F(ID3v1Test, ReadsBothVersions) {
    const std::pair<std::string, std::string> rows[] = {
        {Id3v1("  Song  ", "", "", "", "", 7, 17), "Title=Song;Genre=Rock;Track=7;TagVersion=ID3v1.1;"},
        // A comment of 30 bytes makes it ID3v1.0; genre 127 and above adds nothing.
        {Id3v1("Caf\xE9", "", "", "", std::string(30, 'c'), 0, 127),
         "Title=Caf\xC3\xA9;Comment=" + std::string(30, 'c') + ";TagVersion=ID3v1.0;"},
        {Id3v1("", "", "", "", "", 0, 126), "Genre=Undefined;TagVersion=ID3v1.0;"},
        {Id3v1(""), ""},
    };
    for (const auto& [tag, read] : rows) {
        Make("", tag);
        EXPECT_EQ(Read(), read);
    }
    // Too short for the 131 bytes that the test for a tag reads.
    Make("", "", 130);
    IDTags tags;
    EXPECT_FALSE(RunEngine<TagID3v1>(path, [&](TagID3v1& engine) { return engine.Read(tags, true); }, clFile::kRead));
}

// The field limits and genre rules of writing, and that only the last 128 bytes change.
TEST_F(ID3v1Test, Writes) {
    const IDTags cut = Tags({{"title", std::string(31, 'T')}, {"Artist", "A\rB"}, {"Comment", std::string(30, 'c')},
                             {"Track", "5"}, {"Genre", "undefined\rRock"}});
    const std::string full = Id3v1("Title", "A; B", "Album", "2001", std::string(30, 'c'), 0, 17);
    const struct {
        const char* what;
        std::string before;
        IDTags tags;
        bool merge, version10;
        std::string after;
    } rows[] = {
        {"limits", Id3v1("old"), cut, false, false, Id3v1(std::string(30, 'T'), "A; B", "", "", std::string(28, 'c'), 5, 126)},
        {"ID3v1.0 ignores the track and keeps the whole comment", Id3v1("old"), cut, false, true,
         Id3v1(std::string(30, 'T'), "A; B", "", "", std::string(30, 'c'), 0, 126)},
        {"[No Genre]", Id3v1("x"), Tags({{"Genre", "[No Genre]"}}), true, false, Id3v1("x")},
        {"unknown genre", Id3v1("x"), Tags({{"Genre", "no such genre"}}), true, false, Id3v1("x")},
        {"genre without case", Id3v1("x"), Tags({{"Genre", "BLUES"}}), true, false, Id3v1("x", "", "", "", "", 0, 0)},
        // The ID3v1.1 marker, but 0 stored: it reads back as no track.
        {"track 256", Id3v1("x"), Tags({{"Track", "256"}}), true, false, Id3v1("x", "", "", "", "", 0, 255)},
        {"merging keeps what the tag can't hold", full, Tags({{"Composer", "c"}, {"_albumart_1_Media", ""}}), true,
         false, full},
        {"a new track shortens the comment", full, Tags({{"TRACK", "3"}}), true, false,
         Id3v1("Title", "A; B", "Album", "2001", std::string(28, 'c'), 3, 17)},
        {"empty values delete the tag", Id3v1("Title", "Artist"), Tags({{"Title", ""}, {"Artist", ""}}), true, false, ""},
        // A tag whose fields are all blank is replaced in place, and stays when there is nothing to write.
        {"blank, nothing to write", Id3v1("  "), Tags({{"Composer", "c"}}), true, false, Id3v1("  ")},
        {"blank, replaced", Id3v1("  "), Tags({{"Title", "t"}}), true, false, Id3v1("t")},
    };
    for (const auto& row : rows) {
        Make("", row.before);
        EXPECT_TRUE(RunEngine<TagID3v1>(path, [&](TagID3v1& engine) {
            if (row.version10) engine.SetOption(S("ID3v1Write10"));
            return engine.Write(row.tags, row.merge);
        })) << row.what;
        EXPECT_EQ(Tail(), row.after) << row.what;
    }
}
