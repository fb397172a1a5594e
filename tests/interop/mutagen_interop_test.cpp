// Interoperability with mutagen: what we write as APEv2 and ID3v1.1 it reads
// the same, and what it writes we read the same.

#include <gtest/gtest.h>

#include "tags/picturenaming.h"
#include "tags/stdtags.h"
#include "tags/tagid3v1.h"
#include "tests/tags/tagfixture.h"

using namespace tagtest;

namespace {

class MutagenInterop : public TagFileTest {
protected:
    void SetUp() override {
        Make("");
        it::Ffmpeg({"-f", "lavfi", "-i", "color=red:s=8x8", "-frames:v", "1", png});
        it::Ffmpeg({"-f", "lavfi", "-i", "color=blue:s=8x8", "-frames:v", "1", "-c:v", "mjpeg", jpeg});
    }
    // Runs the helper with a JSON list of tags; expects success and our audio untouched.
    void Mutagen(const std::string& command, const std::string& json) {
        WriteFile(dir.File("tags.json"), json);
        it::RunResult result = it::Run({"/usr/bin/python3", FD_SOURCE_DIR "/tests/interop/mutagen_tags.py", command,
                                        path, dir.File("tags.json")});
        EXPECT_EQ(result.exitCode, 0) << command << "\n" << result.out << result.err;
        Tail();
    }
    std::string Cover(const std::string& name, const std::string& file) {
        return R"J({"cover": {"name": ")J" + name + R"J(", "data_file": ")J" + file + R"J("}})J";
    }

    std::string png = dir.File("cover.png");
    std::string jpeg = dir.File("cover.jpg");
};

const IDTag* PictureOfType(const IDTags& tags, const char* type) {
    for (int i = 0; i < tags.Count(); ++i) {
        clString typeName, description;
        SplitArtKey(tags[i].Name, typeName, description);
        if (IsArtKey(tags[i].Name) && Utf8(typeName) == type) return &tags[i];
    }
    return nullptr;
}

}  // namespace

TEST_F(MutagenInterop, MutagenReadsWhatWeWrite) {
    Make(Id3v1("old"));   // the flows only update an ID3v1 tag
    IDTags tags;
    const char* texts[][2] = {{"Title", "Gr\xC3\xBC\xC3\x9F" "e \xC3\xBCnd Caf\xC3\xA9"}, {"Artist", "One\rTwo"},
                              {"Album", "Album"}, {"Year", "2004"}, {"Comment", "Comment"}, {"Track", "5"},
                              {"Genre", "Rock"}, {"rating", "7"}};
    for (const auto& text : texts) tags.Add(S(text[0]), S(text[1]));
    std::string pngBytes = ReadFile(png), jpegBytes = ReadFile(jpeg);
    tags.AddBinary(S("_albumart_1_Front Album Cover"), pngBytes.data(), static_cast<uint32_t>(pngBytes.size()));
    tags.AddBinary(S("_albumart_2_Back Album Cover<subdesc>b"), jpegBytes.data(),
                   static_cast<uint32_t>(jpegBytes.size()));
    ASSERT_TRUE(WriteStdTags(S(path), tags, 1, nullptr));

    Mutagen("ape-expect", R"J({"Title": {"text": ["Gr\u00fc\u00dfe \u00fcnd Caf\u00e9"]},
        "Artist": {"text": ["One", "Two"]}, "Album": {"text": ["Album"]}, "Year": {"text": ["2004"]},
        "Comment": {"text": ["Comment"]}, "Track": {"text": ["5"]}, "Genre": {"text": ["Rock"]},
        "Rating": {"text": ["3.5"]}, "Cover Art (Front)": )J" + Cover("C:\\\\Pretend.png", png) +
                              R"J(, "Cover Art (Back)": )J" + Cover("C:\\\\Pretend.jpg", jpeg) + "}");
    Mutagen("id3v1-expect", R"J({"title": "Gr\u00fc\u00dfe \u00fcnd Caf\u00e9", "artist": "One; Two",
        "album": "Album", "year": "2004", "comment": "Comment", "track": "5", "genre": "Rock"})J");
}

TEST_F(MutagenInterop, WeReadWhatMutagenWrites) {
    // mutagen appends a new APE tag behind everything, so it goes first here.
    Mutagen("ape-write", R"J({"Title": {"text": ["Gr\u00fc\u00dfe"]}, "Artist": {"text": ["A", "B"]},
        "Rating": {"text": ["4.5"]}, "Tool Name": {"text": ["enc"]}, "Cover Art (Front)": )J" +
                             Cover("front.jpg", jpeg) + R"J(, "Cover Art (Back)": )J" + Cover("back.png", png) + "}");
    Mutagen("id3v1-write", R"J({"title": "v1 title", "artist": "v1 artist", "year": "1999",
        "comment": "v1 comment", "track": "9", "genre": "Jazz"})J");

    IDTags tags;
    clString version;
    ASSERT_TRUE(ReadStdTags(S(path), tags, version, nullptr));
    EXPECT_EQ(Utf8(version), "APEv2 & ID3v1.1");
    std::string text;
    for (const char* name : {"Title", "Artist", "Rating", "Encoded by", "Year", "Comment", "Track", "Genre"}) {
        IDTag* tag = tags.Find(S(name), false);
        text += std::string(name) + "=" + (tag ? Utf8(tag->Value) : "<none>") + ";";
    }
    // The first source of a name wins; what only ID3v1 holds comes from there.
    EXPECT_EQ(text, "Title=Gr\xC3\xBC\xC3\x9F" "e;Artist=A\rB;Rating=9;Encoded by=enc;Year=1999;"
                    "Comment=v1 comment;Track=9;Genre=Jazz;");
    const IDTag* front = PictureOfType(tags, "Front Album Cover");
    const IDTag* back = PictureOfType(tags, "Back Album Cover");
    ASSERT_TRUE(front && back) << Describe(tags);
    EXPECT_EQ(DataOf(*front), ReadFile(jpeg));
    EXPECT_EQ(DataOf(*back), ReadFile(png));
    EXPECT_EQ(tags.Count(), 10) << Describe(tags);

    EXPECT_EQ(ReadWith<TagID3v1>(path, false), "Title=v1 title;Artist=v1 artist;Year=1999;Comment=v1 comment;Genre=Jazz;Track=9;");
}

TEST_F(MutagenInterop, OurUpdateKeepsWhatMutagenWrote) {
    Mutagen("ape-write", R"J({"Title": {"text": ["old"]}, "Artist": {"text": ["A", "B"]},
        "Rating": {"text": ["4.5"]}, "Foreign Key": {"text": ["kept"]}, "Cover Art (Front)": )J" +
                             Cover("front.png", png) + "}");
    Mutagen("id3v1-write", R"J({"title": "v1", "track": "2"})J");
    IDTags tags;
    tags.Add(S("Title"), S("new"));
    ASSERT_TRUE(WriteStdTags(S(path), tags, 1, nullptr));
    // The cover's bytes didn't change, and neither does the name it was stored under.
    Mutagen("ape-expect", R"J({"Title": {"text": ["new"]}, "Artist": {"text": ["A", "B"]},
        "Rating": {"text": ["4.5"]}, "Foreign Key": {"text": ["kept"]}, "Cover Art (Front)": )J" +
                              Cover("front.png", png) + "}");
    Mutagen("id3v1-expect", R"J({"title": "new", "track": "2"})J");
}
