// Matroska files made by independent tools (ffmpeg's muxer, mkvmerge,
// mkvpropedit) read as the engine's rules predict, through the plug-in as a
// host sees them and through fdhost pictures.

#include <gtest/gtest.h>

#include <string>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "tests/tags/tagfixture.h"

using namespace tagtest;

namespace {

const char* kGlobalTagsXml = R"X(<?xml version="1.0"?>
<Tags>
  <Tag>
    <Targets><TargetTypeValue>50</TargetTypeValue></Targets>
    <Simple><Name>TITLE</Name><String>The Album</String><TagLanguage>eng</TagLanguage></Simple>
    <Simple><Name>ARTIST</Name><String>Band</String>
      <Simple><Name>SORT_WITH</Name><String>Band, The</String></Simple>
    </Simple>
    <Simple><Name>TOTAL_PARTS</Name><String>12</String></Simple>
    <Simple><Name>PICTUREDATA</Name><Binary>0102</Binary></Simple>
  </Tag>
  <Tag>
    <Targets><TargetTypeValue>30</TargetTypeValue></Targets>
    <Simple><Name>TITLE</Name><String>Song</String></Simple>
    <Simple><Name>PART_NUMBER</Name><String>3</String></Simple>
    <Simple><Name>ARTIST</Name><String>Singer 1</String></Simple>
    <Simple><Name>ARTIST</Name><String>Singer 2</String><TagLanguage>ger</TagLanguage></Simple>
    <Simple><Name>DATE_RECORDED</Name><String>2001</String></Simple>
  </Tag>
  <Tag>
    <Targets><TargetTypeValue>40</TargetTypeValue></Targets>
    <Simple><Name>TITLE</Name><String>Part</String></Simple>
  </Tag>
</Tags>
)X";

const char* kTrackTagsXml = R"X(<?xml version="1.0"?>
<Tags>
  <Tag>
    <Simple><Name>TITLE</Name><String>Track only</String></Simple>
  </Tag>
</Tags>
)X";

class MatroskaToolsRead : public ::testing::Test {
protected:
    void SetUp() override {
        it::Ffmpeg({"-f", "lavfi", "-i", "sine=d=1", "-map_metadata", "-1", "-c:a", "flac", audio});
        it::Ffmpeg({"-f", "lavfi", "-i", "color=red:s=40x30", "-frames:v", "1", "-c:v", "mjpeg", jpeg});
        it::Ffmpeg({"-f", "lavfi", "-i", "color=blue:s=20x10", "-frames:v", "1", png});
    }
    std::string Read(const std::string& file) {
        IDTags tags;
        if (!MatroskaTags::Read(S(file), tags, log.Target())) return "fail:" + log.Text();
        return Describe(tags);
    }
    void Tool(const std::vector<std::string>& argv) {
        const it::RunResult result = it::Run(argv);
        ASSERT_LE(result.exitCode, 1) << result.out << result.err;   // 1: warnings
    }

    TempDir dir;
    LogCapture log{dir};
    std::string audio = dir.File("audio.flac"), jpeg = dir.File("red.jpg"), png = dir.File("blue.png");
    std::string mka = dir.File("song.mka");
};

}  // namespace

TEST_F(MatroskaToolsRead, FfmpegMetadata) {
    it::Ffmpeg({"-i", audio, "-metadata", "artist=A", "-metadata", "album=B", "-metadata", "date=2020", "-metadata",
                "track=3/12", "-metadata:s:a:0", "title=Stream title", "-metadata", "comment=c", "-c", "copy", mka});
    // Global tags without a level count as 50: ARTIST is the album's artist,
    // PART_NUMBER the disc; the stream's title is aimed at its track.
    EXPECT_EQ(Read(mka), "disc=3/12;ALBUM=B;album artist=A;COMMENT=c;DATE=2020;ENCODER=Lavf59.27.100;");
}

TEST_F(MatroskaToolsRead, MkvmergeTagsAndAttachments) {
    WriteFile(dir.File("global.xml"), kGlobalTagsXml);
    WriteFile(dir.File("track.xml"), kTrackTagsXml);
    WriteFile(dir.File("font.ttf"), "not really a font");
    const std::string copies[][2] = {{jpeg, "cover.jpg"}, {png, "small_cover.png"}, {png, "cover_land.png"},
                                     {png, "Back.png"}, {jpeg, "booklet page.jpg"}};
    std::vector<std::string> argv = {"/usr/bin/mkvmerge", "-q", "-o", mka, "--global-tags", dir.File("global.xml"),
                                     "--no-global-tags", "--tags", "0:" + dir.File("track.xml")};
    for (const auto& copy : copies) {
        WriteFile(dir.File(copy[1]), ReadFile(copy[0]));
        argv.insert(argv.end(), {"--attach-file", dir.File(copy[1])});
    }
    argv.insert(argv.end(), {"--attachment-mime-type", "application/x-truetype-font", "--attach-file",
                             dir.File("font.ttf"), audio});
    Tool(argv);
    const std::string expected =
        "track=3/12;ALBUM=The Album|Part;album artist=Band;ARTIST=Singer 1|Singer 2;date=2001;TITLE=Song;"
        "_albumart_1_Front Album Cover=[" + std::to_string(ReadFile(jpeg).size()) + " bytes];"
        "_albumart_2_small_cover=[" + std::to_string(ReadFile(png).size()) + " bytes];"
        "_albumart_3_cover_land=[" + std::to_string(ReadFile(png).size()) + " bytes];"
        "_albumart_4_Back Album Cover=[" + std::to_string(ReadFile(png).size()) + " bytes];"
        "_albumart_5_booklet page=[" + std::to_string(ReadFile(jpeg).size()) + " bytes];";
    EXPECT_EQ(Read(mka), expected);

    // The same after mkvpropedit moved things about: a changed title, a
    // picture less.
    Tool({"/usr/bin/mkvpropedit", "-q", mka, "--delete-attachment", "name:small_cover.png", "--edit", "info", "--set",
          "title=whatever"});
    std::string after = expected;
    after.erase(after.find("_albumart_2_small"), after.find("_albumart_3") - after.find("_albumart_2_small"));
    for (char n : {'3', '4', '5'}) after[after.find(std::string("_albumart_") + n) + 10] = static_cast<char>(n - 1);
    EXPECT_EQ(Read(mka), after);

    // fdhost pictures writes each picture as the file it was, named by its key.
    const it::RunResult pictures = it::Fdhost({"pictures", mka, "-o", dir.File("out"), "--json"});
    ASSERT_EQ(pictures.exitCode, 0) << pictures.err;
    const std::string out = dir.File("out");
    const auto entry = [&](const std::string& key, const std::string& image, const char* type, const char* size) {
        const std::string ext = image == jpeg ? ".jpg" : ".png";
        return "{\"path\":\"" + out + "/" + key + ext + "\",\"key\":\"" + key + "\",\"type\":\"" + type + "\"," +
               size + ",\"bytes\":" + std::to_string(ReadFile(image).size()) + "}";
    };
    EXPECT_EQ(pictures.out, "{\"path\":\"" + mka + "\",\"pictures\":[" + entry("_albumart_1_Front Album Cover", jpeg, "JPEG", "\"width\":40,\"height\":30") + "," +
                                entry("_albumart_2_cover_land", png, "PNG", "\"width\":20,\"height\":10") + "," +
                                entry("_albumart_3_Back Album Cover", png, "PNG", "\"width\":20,\"height\":10") + "," +
                                entry("_albumart_4_booklet page", jpeg, "JPEG", "\"width\":40,\"height\":30") +
                                "],\"warnings\":[]}\n");
    EXPECT_EQ(ReadFile(out + "/_albumart_1_Front Album Cover.jpg"), ReadFile(jpeg));
    EXPECT_EQ(ReadFile(out + "/_albumart_3_Back Album Cover.png"), ReadFile(png));
}
