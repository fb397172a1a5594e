// Interoperability with mutagen for ID3v2: what it writes as 2.3 and as 2.4
// we read as our rules predict; what we write it reads frame by frame; and
// our rewrite of its tag keeps the frames we didn't change byte for byte.

#include <gtest/gtest.h>

#include "tags/id3v2/tagid3v2.h"
#include "tests/tags/id3v2/id3builder.h"
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
        std::vector<std::string> argv = {"/usr/bin/python3", FD_SOURCE_DIR "/tests/interop/mutagen_tags.py"};
        argv.insert(argv.end(), args.begin(), args.end());
        it::RunResult result = it::Run(argv);
        ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
        lastOutput = result.out;
    }
    void MutagenWrites(int version) { Script({"id3v2-write", path, std::to_string(version), png, jpeg}); }
    std::string MutagenDump() {
        Script({"id3v2-dump", path});
        return lastOutput;
    }
    // The frames of our file's tag, as our parser stores them.
    std::vector<std::pair<uint32_t, std::string>> Frames() {
        clFile file = OpenFile(path, clFile::kRead);
        id3parser::id3tag tag;
        EXPECT_TRUE(TagID3v2(file).readTagFrom(tag, file, 0));
        std::vector<std::pair<uint32_t, std::string>> frames;
        for (const id3parser::id3frame& frame : tag.frames) frames.emplace_back(frame.id, std::string(frame.data.begin(), frame.data.end()));
        return frames;
    }
    // The bytes behind the tag, which every tag operation must leave alone.
    std::string AudioAfterTag() {
        const std::string bytes = ReadFile(path);
        return bytes.substr(id3test::TagSize(bytes));
    }
    std::string ReadOurs(std::string& version) {
        IDTags tags;
        clString joined;
        EXPECT_TRUE(ReadStdTags(S(path), tags, joined, nullptr));
        version = Utf8(joined);
        for (int i = 0; i < tags.Count(); ++i) {
            const std::string name = Utf8(tags[i].Name);
            const bool front = name.find("Front") != std::string::npos;
            if (front || name.find("Back") != std::string::npos) {
                EXPECT_EQ(DataOf(tags[i]), ReadFile(front ? png : jpeg)) << name;
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

TEST_F(MutagenId3, MutagenReadsWhatWeWrite) {
    IDTags tags = Tags({{"Title", "Gr\xC3\xBC\xC3\x9F" "e"}, {"Artist", "A\rB"}, {"Genre", "Rock\rJazz"},
                        {"Track", "5/12"}, {"Year", "2004"}, {"Comment", "c"}, {"Rating", "7"},
                        {"replaygain_track_gain", "-1.00 dB"}});
    const std::string pngBytes = ReadFile(png), jpegBytes = ReadFile(jpeg);
    tags.AddBinary(S("_albumart_1_Front Album Cover<subdesc>Front"), pngBytes.data(), static_cast<uint32_t>(pngBytes.size()));
    tags.AddBinary(S("_albumart_2_Back Album Cover<subdesc>Back"), jpegBytes.data(), static_cast<uint32_t>(jpegBytes.size()));
    const struct {
        std::initializer_list<const char16_t*> options;
        std::string expected;
    } cases[] = {
        {{}, R"J({"version": 3, "frames": [["TIT2", ["Grüße"]], ["TCON", ["Rock;Jazz"]], ["TYER", ["2004"]], )J"
             R"J(["TRCK", ["5/12"]], ["TPE1", ["A/B"]], ["POPM", ["Windows Media Player 9 Series", 160]], )J"
             R"J(["COMM", ["", "eng", "c"]], ["TXXX", ["replaygain_track_gain", "-1.00 dB"]], )J"},
        {{u"ID3v2WriteV24"}, R"J({"version": 4, "frames": [["TIT2", ["Grüße"]], ["TCON", ["Rock", "Jazz"]], )J"
                             R"J(["TDRC", ["2004"]], ["TRCK", ["5/12"]], ["TPE1", ["A", "B"]], )J"
                             R"J(["POPM", ["Windows Media Player 9 Series", 160]], ["COMM", ["", "eng", "c"]], )J"
                             R"J(["TXXX", ["replaygain_track_gain", "-1.00 dB"]], )J"},
    };
    for (const auto& c : cases) {
        WriteFile(path, audio);
        ASSERT_TRUE(RunEngine<TagID3v2>(path, [&](TagID3v2& engine) {
            for (const char16_t* option : c.options) engine.SetOption(clString(option));
            return engine.Write(tags, false);
        }));
        EXPECT_EQ(AudioAfterTag(), audio);
        const std::string dump = MutagenDump();
        EXPECT_EQ(dump.substr(0, c.expected.size()), c.expected) << dump;
        // Pictures last, the front cover first, with their descriptions and bytes.
        const size_t front = dump.find(R"J(["APIC", [3, "Front", "image/png", ")J");
        const size_t back = dump.find(R"J(["APIC", [4, "Back", "image/jpeg", ")J");
        ASSERT_TRUE(front != std::string::npos && back != std::string::npos && front < back) << dump;
        EXPECT_EQ(ReadFile(path + ".apic8"), pngBytes);
        EXPECT_EQ(ReadFile(path + ".apic9"), jpegBytes);
    }
}

TEST_F(MutagenId3, OurRewriteKeepsWhatMutagenWrote) {
    for (int version : {3, 4}) {
        WriteFile(path, audio);
        MutagenWrites(version);
        const auto before = Frames();
        ASSERT_TRUE(WriteStdTags(S(path), Tags({{"Title", "New"}}), 1, nullptr));
        EXPECT_EQ(AudioAfterTag(), audio);   // and no APE tag behind it
        const auto after = Frames();

        // The new title first; the frames that nothing changed follow in their old order, byte for byte.
        ASSERT_FALSE(after.empty());
        EXPECT_EQ(after.front().first, id3parser::frameId("TIT2"));
        std::vector<std::pair<uint32_t, std::string>> retained, kept;
        std::copy_if(before.begin(), before.end(), std::back_inserter(retained), [](const auto& frame) {
            const uint32_t id = frame.first;
            const char text[] = {char(id >> 24), char(id >> 16), char(id >> 8), char(id), 0};
            return std::string("PRIV MCDI UFID GEOB TPE1 USLT APIC").find(text) != std::string::npos;
        });
        std::copy_if(after.begin(), after.end(), std::back_inserter(kept), [&](const auto& frame) {
            return std::find(retained.begin(), retained.end(), frame) != retained.end();
        });
        EXPECT_EQ(kept, retained) << version;

        // mutagen reads the same tag, with the new title.
        const std::string dump = MutagenDump();
        for (const char* frame : {R"J(["TIT2", ["New"]])J", R"J(["PRIV", "org.example:000170726976617465"])J",
                                  R"J(["MCDI", ":0012746f63"])J", R"J(["TALB", ["Café"]])J",
                                  R"J(["USLT", ["d", "eng", "la la"]])J", R"J(["POPM", ["x@y", 196]])J",
                                  R"J(["COMM", ["note", "deu", "Notiz"]])J",
                                  R"J(["TXXX", ["replaygain_track_gain", "-6.50 dB"]])J",
                                  version == 3 ? R"J(["TPE1", ["A/B"]])J" : R"J(["TPE1", ["A", "B"]])J"}) {
            EXPECT_NE(dump.find(frame), std::string::npos) << frame << "\n" << dump;
        }
        // And we read back what we read before, with the new title.
        std::string expected = version == 3 ? Expected("x/y", "Rock|Jazz|Remix", "2001-03-02")
                                            : Expected("x|y", "Rock|Electronic|Jazz", "2004-05-06");
        const std::string oldTitle = "Title=Gr\xC3\xBC\xC3\x9F" "e \xE2\x98\xBA;";
        expected.replace(expected.find(oldTitle), oldTitle.size(), "Title=New;");
        std::string ours;
        EXPECT_EQ(ReadOurs(ours), expected);
    }
}
