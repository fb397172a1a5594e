// The standard tags through the plug-in and fdhost on a real .tta: the audio
// in front of the tags never changes.

#include <gtest/gtest.h>

#include "id3v2/id3builder.h"
#include "tagfixture.h"
#include "tags/tagapev2.h"

using namespace tagtest;

namespace {

std::string Entry(const std::string& name, const std::string& value) {
    return "{\"name\":\"" + name + "\",\"value\":\"" + value + "\"";
}

void ExpectEntries(const std::string& info, std::initializer_list<std::string> entries) {
    for (const std::string& entry : entries) EXPECT_NE(info.find(entry), std::string::npos) << entry << "\n" << info;
}

class StdTagsThroughPlugin : public ::testing::Test {
protected:
    void SetUp() override {
        it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1", "-c:a", "tta", tta});
        it::Ffmpeg({"-f", "lavfi", "-i", "color=green:s=8x8", "-frames:v", "1", png});
        // The audio: all in front of the APE tag that ffmpeg wrote.
        const int64_t tagStart = RunEngine<TagAPEv2>(tta, [](TagAPEv2& ape) {
            IDTags tags;
            return ape.Read(tags, false) ? ape.TagStart : -1;
        }, clFile::kRead);
        ASSERT_GT(tagStart, 0);
        audio = ReadFile(tta).substr(0, static_cast<size_t>(tagStart));
    }
    int Host(std::vector<std::string> args) {
        args.insert(args.begin(), {"--error-log", errorLog});
        it::RunResult result = it::Fdhost(args);
        EXPECT_EQ(ReadFile(tta).substr(0, audio.size()), audio);
        return result.exitCode;
    }
    std::string Info() {
        it::RunResult result = it::Fdhost({"--json", "info", tta});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return result.out;
    }
    std::string Log() { return AsciiLog(errorLog); }

    TempDir dir;
    std::string tta = dir.File("tone.tta"), png = dir.File("cover.png"), errorLog = dir.File("error.log"), audio;
};

}  // namespace

TEST_F(StdTagsThroughPlugin, WriteOpenAndDelete) {
    ASSERT_EQ(Host({"write", tta, "--set", "Title=Hello", "--set", "Artist=A", "--set", "artist=B", "--picture",
                    "Front Album Cover=" + png + ":Sleeve"}),
              0);
    // APE covers keep no description.
    ExpectEntries(Info(), {Entry("ID Tag", "APEv2"), Entry("Title", "Hello"), Entry("Artist", "A\\rB"),
                           Entry("_albumart_1_Front Album Cover", "") + ",\"data_size\":" +
                               std::to_string(ReadFile(png).size())});

    WriteFile(dir.File("blob.bin"), std::string("\0\1\2", 3));
    WriteFile(dir.File("tags.json"),
              R"([{"name": "Album", "value": "\u00c4lbum \ud83c\udfb5"}, {"name": "Blob", "data_file": "blob.bin"}])");
    ASSERT_EQ(Host({"write", tta, "--from-json", dir.File("tags.json")}), 0);
    ExpectEntries(Info(), {Entry("Album", "\xC3\x84lbum \xF0\x9F\x8E\xB5"), Entry("Blob", "") + ",\"data_size\":3"});

    ASSERT_EQ(Host({"delete", tta, "artist", "_albumart_1_Front Album Cover"}), 0);
    std::string info = Info();
    EXPECT_EQ(info.find("Artist"), std::string::npos) << info;
    EXPECT_EQ(info.find("_albumart_"), std::string::npos) << info;
    EXPECT_NE(info.find(Entry("Title", "Hello")), std::string::npos) << info;

    ASSERT_EQ(Host({"delete", tta}), 0);
    EXPECT_EQ(ReadFile(tta), audio);
    EXPECT_EQ(Info().find("ID Tag"), std::string::npos);
    EXPECT_EQ(Log(), "");
}

TEST_F(StdTagsThroughPlugin, RefusalsAreReported) {
    std::string wav = dir.File("tone.wav");
    WriteFile(wav, "RIFF");
    EXPECT_EQ(Host({"delete", wav}), 1);
    EXPECT_EQ(ReadFile(wav), "RIFF");
    EXPECT_NE(Log().find("Tagging not supported for this format.  [clDecoder_ffmpeg::DeleteATag]"), std::string::npos);
    EXPECT_EQ(Host({"write", tta, "--picture", "No Such Type=" + png}), 2);
    EXPECT_EQ(Host({"write", tta, "--from-json", dir.File("missing.json")}), 1);

    // A damaged APE tag is left as it is, and the host hears so.
    const ApeTag damaged = ApeTag({{"Title", "t"}}).Stating(100000);
    WriteFile(tta, audio + damaged.Bytes());
    const std::pair<std::vector<std::string>, std::string> refusals[] = {
        {{"delete", tta}, "delete APE tag  [DeleteStdTags]"}, {{"write", tta, "--set", "Title=x"}, "write APE tag  [WriteStdTags]"}};
    for (const auto& [args, op] : refusals) {
        EXPECT_EQ(Host(args), 1);
        EXPECT_NE(Log().find("Could not " + op + "\r\nThe APE tag is damaged"), std::string::npos) << Log();
    }
    EXPECT_EQ(ReadFile(tta), audio + damaged.Bytes());
}

TEST_F(StdTagsThroughPlugin, Id3v2InFrontOfTheAudio) {
    const auto Decode = [&](const std::string& path) {
        const std::string out = dir.File("out.raw");
        it::RunResult result = it::Fdhost({"decode", path, "-o", out, "--raw"});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return ReadFile(out);
    };
    const std::string clean = ReadFile(tta);
    const std::string samples = Decode(tta);
    ASSERT_FALSE(samples.empty());
    // ffmpeg's APE tag behind the audio names the encoder.
    const std::string tag = id3test::Tag(3, id3test::Frame23("TIT2", id3test::Text("v2")) +
                                                id3test::Frame23("TALB", id3test::Text("v2 album")));
    WriteFile(tta, tag + clean);
    ExpectEntries(Info(), {Entry("ID Tag", "APEv2 & ID3v2.3"), Entry("Title", "v2"), Entry("Album", "v2 album")});
    EXPECT_EQ(Decode(tta), samples);

    // A header with flags that no version allows: no ID3v2 tag, but the APE tag and the audio come through.
    std::string damaged = tag + clean;
    damaged[5] = 0x0F;
    WriteFile(tta, damaged);
    const std::string info = Info();
    ExpectEntries(info, {Entry("ID Tag", "APEv2")});
    EXPECT_EQ(info.find("v2 album"), std::string::npos) << info;
    EXPECT_EQ(Decode(tta), samples);
}

TEST_F(StdTagsThroughPlugin, PicturesOfAnApeTag) {
    ASSERT_EQ(Host({"write", tta, "--picture", "Back Album Cover=" + png}), 0);
    const std::string out = dir.File("pictures");
    const it::RunResult result = it::Fdhost({"pictures", tta, "-o", out});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::string file = out + "/_albumart_1_Back Album Cover.png";
    EXPECT_EQ(result.out, file + ": PNG 8x8, " + std::to_string(ReadFile(png).size()) + " bytes\n");
    EXPECT_EQ(ReadFile(file), ReadFile(png));
    EXPECT_EQ(it::Fdhost({"pictures", tta}).exitCode, 2);   // no folder given
}
