// Interoperability with mutagen for ID3v2: what it writes as 2.3 and as 2.4
// we read as our rules predict.

#include <gtest/gtest.h>

#include "tags/stdtags.h"
#include "tests/tags/tagfixture.h"

using namespace tagtest;

namespace {

class MutagenId3 : public ::testing::Test {
protected:
    void SetUp() override {
        it::Ffmpeg({"-f", "lavfi", "-i", "color=red:s=8x8", "-frames:v", "1", png});
        it::Ffmpeg({"-f", "lavfi", "-i", "color=blue:s=8x8", "-frames:v", "1", "-c:v", "mjpeg", jpeg});
        WriteFile(path, audio);
    }
    void Script(const std::vector<std::string>& args) {
        std::vector<std::string> argv = {"/usr/bin/python3", FD_SOURCE_DIR "/tests/interop/mutagen_id3.py"};
        argv.insert(argv.end(), args.begin(), args.end());
        it::RunResult result = it::Run(argv);
        ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
        lastOutput = result.out;
    }
    void MutagenWrites(int version) { Script({"write", path, std::to_string(version), png, jpeg}); }
    // The bytes behind the tag, which every tag operation must leave alone.
    std::string AudioAfterTag() {
        const std::string bytes = ReadFile(path);
        const size_t size = bytes.size() >= 10 && bytes.compare(0, 3, "ID3") == 0
                                ? 10 + ((static_cast<size_t>(bytes[6]) << 21) | (static_cast<size_t>(bytes[7]) << 14) |
                                        (static_cast<size_t>(bytes[8]) << 7) | static_cast<size_t>(bytes[9]))
                                : 0;
        return bytes.substr(size);
    }
    std::string ReadOurs(std::string& version) {
        IDTags tags;
        clString joined;
        EXPECT_TRUE(ReadStdTags(S(path), tags, joined, nullptr));
        version = Utf8(joined);
        for (int i = 0; i < tags.Count(); ++i) {
            const std::string name = Utf8(tags[i].Name);
            if (name.find("Front") != std::string::npos) {
                EXPECT_EQ(DataOf(tags[i]), ReadFile(png));
            }
            if (name.find("Back") != std::string::npos) {
                EXPECT_EQ(DataOf(tags[i]), ReadFile(jpeg));
            }
        }
        return Describe(tags);
    }

    TempDir dir;
    std::string path = dir.File("song.tak");
    std::string png = dir.File("cover.png");
    std::string jpeg = dir.File("cover.jpg");
    std::string audio = AudioBytes(4000);
    std::string lastOutput;
};

// Everything both versions share, in the map order of the names.
std::string Expected(const std::string& catalog, const std::string& genre, const std::string& year) {
    return "Album=Caf\xC3\xA9;Album Artist=AC/DC;Artist=A|B;Catalog=" + catalog +
           ";Comment=plain;Comment note=Notiz;Composer=Comp\xC3\xB6ser;Genre=" + genre +
           ";Lyrics=la la;Mood=calm;Rating=8;replaygain_track_gain=-6.50 dB;Title=Gr\xC3\xBC\xC3\x9F" "e \xE2\x98\xBA;"
           "Track=3/12;User defined URL link home=http://h.example/;Year=" + year +
           ";_albumart_1_Front Album Cover<subdesc>Front C\xC3\xB6ver=[96 bytes];"
           "_albumart_2_Back Album Cover<subdesc>Back=[225 bytes];_cdtoc=[5 bytes];";
}

}  // namespace

TEST_F(MutagenId3, WeReadWhatMutagenWrites) {
    struct {
        int version;
        const char* versionText;
        std::string expected;
    } cases[] = {
        // 2.3: values joined by "/" split, except in a user frame; TCON a ";" list; TDRC becomes TYER + TDAT.
        {3, "ID3v2.3", Expected("x/y", "Rock|Jazz|Remix", "2001-03-02")},
        // 2.4: values NUL-separated; TCON entries each a number, a name or a "(n)" reference.
        {4, "ID3v2.4", Expected("x|y", "Rock|Electronic|Jazz", "2004-05-06")},
    };
    for (const auto& c : cases) {
        WriteFile(path, audio);
        MutagenWrites(c.version);
        std::string version;
        EXPECT_EQ(ReadOurs(version), c.expected) << c.version;
        EXPECT_EQ(version, c.versionText);
        EXPECT_EQ(AudioAfterTag(), audio);
    }
}
