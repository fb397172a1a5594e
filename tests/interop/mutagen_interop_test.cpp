// Interoperability with mutagen: what we write as APEv2 and ID3v1.1 it reads
// the same, and what it writes we read the same. The images are made by
// ffmpeg and the tags by both sides at test time.

#include <gtest/gtest.h>

#include "tests/integration/testkit.h"
#include "tests/tags/tagfixture.h"
#include "tags/picturenaming.h"
#include "tags/stdtags.h"
#include "tags/tagid3v1.h"

namespace {

using tagtest::Describe;
using tagtest::S;
using tagtest::Utf8;

constexpr size_t kAudio = 4000;

class MutagenInterop : public ::testing::Test {
protected:
    void SetUp() override {
        it::WriteFile(path, tagtest::AudioBytes(kAudio));
        it::Ffmpeg({"-f", "lavfi", "-i", "color=red:s=8x8", "-frames:v", "1", png});
        it::Ffmpeg({"-f", "lavfi", "-i", "color=blue:s=8x8", "-frames:v", "1", "-c:v", "mjpeg", jpeg});
    }

    // Runs the helper with a JSON spec; returns its exit code, its output in `out`.
    int Mutagen(const std::string& command, const std::string& json, std::string* out = nullptr) {
        std::string spec = dir.File("spec.json");
        it::WriteFile(spec, json);
        it::RunResult result =
            it::Run({"/usr/bin/python3", std::string(FD_SOURCE_DIR) + "/tests/interop/mutagen_tags.py", command,
                     path, spec});
        if (out) *out = result.out + result.err;
        EXPECT_EQ(result.err, "") << command;
        return result.exitCode;
    }

    void ExpectMutagenSees(const std::string& command, const std::string& json) {
        std::string out;
        EXPECT_EQ(Mutagen(command, json, &out), 0) << out;
    }

    void ExpectAudioKept() { EXPECT_EQ(it::ReadFile(path).substr(0, kAudio), tagtest::AudioBytes(kAudio)); }

    it::TempDir dir;
    std::string path = dir.File("song.tak");
    std::string png = dir.File("cover.png");
    std::string jpeg = dir.File("cover.jpg");
};

IDTag* PictureOfType(IDTags& tags, const char* type) {
    for (int i = 0; i < tags.Count(); ++i) {
        clString typeName, description;
        if (!IsArtKey(tags[i].Name)) continue;
        SplitArtKey(tags[i].Name, typeName, description);
        if (Utf8(typeName) == type) return &tags[i];
    }
    return nullptr;
}

}  // namespace

TEST_F(MutagenInterop, MutagenReadsWhatWeWrite) {
    // The flows only update an ID3v1 tag, so the file starts with one.
    it::WriteFile(path, tagtest::AudioBytes(kAudio) + tagtest::Id3v1("old").Bytes());
    IDTags tags;
    tags.Add(S("Title"), S("Gr\xC3\xBC\xC3\x9F" "e \xC3\xBCnd Caf\xC3\xA9"));
    tags.Add(S("Artist"), S("One\rTwo"));
    tags.Add(S("Album"), S("Album"));
    tags.Add(S("Year"), S("2004"));
    tags.Add(S("Comment"), S("Comment"));
    tags.Add(S("Track"), S("5"));
    tags.Add(S("Genre"), S("Rock"));
    tags.Add(S("rating"), S("7"));
    std::string pngBytes = it::ReadFile(png), jpegBytes = it::ReadFile(jpeg);
    tags.AddBinary(S("_albumart_1_Front Album Cover"), pngBytes.data(), static_cast<uint32_t>(pngBytes.size()));
    tags.AddBinary(S("_albumart_2_Back Album Cover<subdesc>b"), jpegBytes.data(),
                   static_cast<uint32_t>(jpegBytes.size()));
    ASSERT_TRUE(WriteStdTags(S(path.c_str()), tags, 1, nullptr));
    ExpectAudioKept();

    ExpectMutagenSees("ape-expect", R"J({
        "Title": {"text": ["Gr\u00fc\u00dfe \u00fcnd Caf\u00e9"]},
        "Artist": {"text": ["One", "Two"]},
        "Album": {"text": ["Album"]}, "Year": {"text": ["2004"]}, "Comment": {"text": ["Comment"]},
        "Track": {"text": ["5"]}, "Genre": {"text": ["Rock"]}, "Rating": {"text": ["3.5"]},
        "Cover Art (Front)": {"cover": {"name": "C:\\Pretend.png", "data_file": ")J" + png + R"J("}},
        "Cover Art (Back)": {"cover": {"name": "C:\\Pretend.jpg", "data_file": ")J" + jpeg + R"J("}}})J");
    ExpectMutagenSees("id3v1-expect", R"J({"title": "Gr\u00fc\u00dfe \u00fcnd Caf\u00e9", "artist": "One; Two",
        "album": "Album", "year": "2004", "comment": "Comment", "track": "5", "genre": "Rock"})J");
}

TEST_F(MutagenInterop, WeReadWhatMutagenWrites) {
    // mutagen appends an APE tag behind everything, so the ID3v1 tag comes second.
    ASSERT_EQ(Mutagen("ape-write", R"J({
        "Title": {"text": ["Gr\u00fc\u00dfe"]}, "Artist": {"text": ["A", "B"]}, "Rating": {"text": ["4.5"]},
        "Tool Name": {"text": ["enc"]},
        "Cover Art (Front)": {"cover": {"name": "front.jpg", "data_file": ")J" + jpeg + R"J("}},
        "Cover Art (Back)": {"cover": {"name": "back.png", "data_file": ")J" + png + R"J("}}})J"), 0);
    ASSERT_EQ(Mutagen("id3v1-write", R"J({"title": "v1 title", "artist": "v1 artist", "year": "1999",
        "comment": "v1 comment", "track": "9", "genre": "Jazz"})J"), 0);
    ExpectAudioKept();

    IDTags tags;
    clString version;
    ASSERT_TRUE(ReadStdTags(S(path.c_str()), tags, version, nullptr));
    EXPECT_EQ(Utf8(version), "APEv2 & ID3v1.1");
    auto value = [&](const char* name) {
        IDTag* tag = tags.Find(S(name), false);
        return tag ? Utf8(tag->Value) : std::string("<none>");
    };
    EXPECT_EQ(value("Title"), "Gr\xC3\xBC\xC3\x9F" "e");
    EXPECT_EQ(value("Artist"), "A\rB");
    EXPECT_EQ(value("Rating"), "9");
    EXPECT_EQ(value("Encoded by"), "enc");
    // What only the ID3v1 tag holds comes from there.
    EXPECT_EQ(value("Year"), "1999");
    EXPECT_EQ(value("Comment"), "v1 comment");
    EXPECT_EQ(value("Track"), "9");
    EXPECT_EQ(value("Genre"), "Jazz");
    IDTag* front = PictureOfType(tags, "Front Album Cover");
    IDTag* back = PictureOfType(tags, "Back Album Cover");
    ASSERT_TRUE(front && back) << Describe(tags);
    EXPECT_EQ(tagtest::DataOf(*front), it::ReadFile(jpeg));
    EXPECT_EQ(tagtest::DataOf(*back), it::ReadFile(png));
    EXPECT_EQ(tags.Count(), 10) << Describe(tags);

    clFile file = tagtest::OpenFile(path, clFile::kRead);
    TagID3v1 id3v1(file);
    IDTags v1;
    ASSERT_TRUE(id3v1.Read(v1, false));
    EXPECT_EQ(Describe(v1), "Title=v1 title;Artist=v1 artist;Year=1999;Comment=v1 comment;Genre=Jazz;Track=9;");
}

TEST_F(MutagenInterop, OurUpdateKeepsWhatMutagenWrote) {
    ASSERT_EQ(Mutagen("ape-write", R"J({"Title": {"text": ["old"]}, "Artist": {"text": ["A", "B"]},
        "Rating": {"text": ["4.5"]}, "Foreign Key": {"text": ["kept"]},
        "Cover Art (Front)": {"cover": {"name": "front.png", "data_file": ")J" + png + R"J("}}})J"), 0);
    ASSERT_EQ(Mutagen("id3v1-write", R"J({"title": "v1", "track": "2"})J"), 0);
    IDTags tags;
    tags.Add(S("Title"), S("new"));
    ASSERT_TRUE(WriteStdTags(S(path.c_str()), tags, 1, nullptr));
    ExpectAudioKept();
    // Our own name for a cover replaces the file name that means nothing.
    ExpectMutagenSees("ape-expect", R"J({"Title": {"text": ["new"]}, "Artist": {"text": ["A", "B"]},
        "Rating": {"text": ["4.5"]}, "Foreign Key": {"text": ["kept"]},
        "Cover Art (Front)": {"cover": {"name": "C:\\Pretend.png", "data_file": ")J" + png + R"J("}}})J");
    ExpectMutagenSees("id3v1-expect", R"J({"title": "new", "track": "2"})J");
}
