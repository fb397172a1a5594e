// The ID3v1 engine over real files: reading both versions, the field limits
// and genre rules of writing, and that only the last 128 bytes ever change.

#include <gtest/gtest.h>

#include "tagfixture.h"
#include "tags/tagid3v1.h"

using namespace tagtest;

using ID3v1Test = TagFileTest;

// Fields, track and genre as both versions hold them (what mutagen writes: MutagenApe; files too
// short for the 131 bytes that the test for a tag reads: the id3v1 fuzz target).
TEST_F(ID3v1Test, ReadsBothVersions) {
    const std::pair<std::string, std::string> rows[] = {
        {Id3v1("  Song  ", "", "", "", "", 7, 17), "Title=Song;Genre=Rock;Track=7;TagVersion=ID3v1.1;"},
        // A comment of 30 bytes makes it ID3v1.0; genre 127 and above adds nothing.
        {Id3v1("Caf\xE9", "", "", "", std::string(30, 'c'), 0, 127), "Title=Caf\xC3\xA9;Comment=" + std::string(30, 'c') + ";TagVersion=ID3v1.0;"},
        {Id3v1("", "", "", "", "", 0, 126), "Genre=Undefined;TagVersion=ID3v1.0;"},
        {Id3v1(""), ""},
    };
    for (const auto& [tag, read] : rows) {
        Make("", tag);
        EXPECT_EQ(ReadWith<TagID3v1>(path), read);
    }
}

// What the generated round trip doesn't write (field limits, unknown genres, a
// track's shorter comment, names the tag can't hold: MutagenApe).
TEST_F(ID3v1Test, Writes) {
    const IDTags cut = Tags({{"title", std::string(31, 'T')}, {"Artist", "A\rB"}, {"Comment", std::string(30, 'c')}, {"Track", "5"}});
    const struct { std::string before; IDTags tags; bool merge, version10; std::string after; } rows[] = {
        {Id3v1("old"), cut, false, true, Id3v1(std::string(30, 'T'), "A; B", "", "", std::string(30, 'c'), 0, 255)},   // ID3v1.0: no track
        {Id3v1("x"), Tags({{"Genre", "[No Genre]"}}), true, false, Id3v1("x")},
        {Id3v1("x"), Tags({{"Genre", "BLUES"}}), true, false, Id3v1("x", "", "", "", "", 0, 0)},
        {Id3v1("x"), Tags({{"Track", "256"}}), true, false, Id3v1("x", "", "", "", "", 0, 255)},   // the 1.1 marker, 0 stored
        {Id3v1("Title", "Artist"), Tags({{"Title", ""}, {"Artist", ""}}), true, false, ""},   // empty values delete the tag
        // A tag whose fields are all blank is replaced in place, and stays when there is nothing to write.
        {Id3v1("  "), Tags({{"Composer", "c"}}), true, false, Id3v1("  ")},
        {Id3v1("  "), Tags({{"Title", "t"}}), true, false, Id3v1("t")},
    };
    for (const auto& row : rows) {
        Make("", row.before);
        EXPECT_TRUE(RunEngine<TagID3v1>(path, [&](TagID3v1& engine) {
            if (row.version10) engine.SetOption(S("ID3v1Write10"));
            return engine.Write(row.tags, row.merge);
        })) << row.after;
        EXPECT_EQ(Tail(), row.after);
    }
}
