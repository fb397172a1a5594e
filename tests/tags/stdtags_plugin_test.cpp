// The standard tags through the plug-in and fdhost, as a host uses them: Open
// hands out the file's own tags, Set("IDTags") and DeleteATag change them, and
// the audio in front of the tags never changes.

#include <gtest/gtest.h>

#include "tagfixture.h"
#include "tags/tagapev2.h"
#include "tests/integration/testkit.h"

namespace {

// Where the audio of a file ends: in front of its APE tag, if it has one.
size_t AudioEnd(const std::string& path) {
    clFile file = tagtest::OpenFile(path, clFile::kRead);
    TagAPEv2 ape(file);
    IDTags tags;
    EXPECT_TRUE(ape.Read(tags, false));
    return static_cast<size_t>(ape.TagStart);
}

std::string Entry(const std::string& name, const std::string& value) {
    return "{\"name\":\"" + name + "\",\"value\":\"" + value + "\"";
}

// The plug-in's UTF-16LE log as ASCII text.
std::string AsciiLog(const std::string& path) {
    std::string text;
    for (char c : it::ReadFile(path)) {
        if (c != '\0') text += c;
    }
    return text;
}

class StdTagsThroughPlugin : public ::testing::Test {
protected:
    void SetUp() override {
        it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1", "-c:a", "tta", tta});
        it::Ffmpeg({"-f", "lavfi", "-i", "color=green:s=8x8", "-frames:v", "1", png});
        audio = it::ReadFile(tta).substr(0, AudioEnd(tta));
    }
    it::RunResult Host(std::vector<std::string> args) {
        args.insert(args.begin(), {"--error-log", errorLog});
        return it::Fdhost(args);
    }
    std::string Info() {
        it::RunResult result = Host({"--json", "info", tta});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return result.out;
    }
    void ExpectAudioKept() { EXPECT_EQ(it::ReadFile(tta).substr(0, audio.size()), audio); }

    it::TempDir dir;
    std::string tta = dir.File("tone.tta");
    std::string png = dir.File("cover.png");
    std::string errorLog = dir.File("error.log");
    std::string audio;
};

}  // namespace

TEST_F(StdTagsThroughPlugin, WriteOpenAndDelete) {
    it::RunResult write = Host({"write", tta, "--set", "Title=Hello", "--set", "Artist=A", "--set", "artist=B",
                                "--picture", "Front Album Cover=" + png + ":Sleeve"});
    ASSERT_EQ(write.exitCode, 0) << write.err;
    ExpectAudioKept();
    std::string info = Info();
    EXPECT_NE(info.find(Entry("ID Tag", "APEv2")), std::string::npos) << info;
    EXPECT_NE(info.find(Entry("Title", "Hello")), std::string::npos) << info;
    EXPECT_NE(info.find(Entry("Artist", "A\\rB")), std::string::npos) << info;
    // APE covers keep no description.
    std::string cover = Entry("_albumart_1_Front Album Cover", "") +
                        ",\"data_size\":" + std::to_string(it::ReadFile(png).size());
    EXPECT_NE(info.find(cover), std::string::npos) << info;

    it::WriteFile(dir.File("blob.bin"), std::string("\0\1\2", 3));
    it::WriteFile(dir.File("tags.json"),
                  R"([{"name": "Album", "value": "\u00c4lbum \ud83c\udfb5"}, {"name": "Blob", "data_file": "blob.bin"}])");
    write = Host({"write", tta, "--from-json", dir.File("tags.json")});
    ASSERT_EQ(write.exitCode, 0) << write.err;
    info = Info();
    EXPECT_NE(info.find(Entry("Album", "\xC3\x84lbum \xF0\x9F\x8E\xB5")), std::string::npos) << info;
    EXPECT_NE(info.find(Entry("Blob", "") + ",\"data_size\":3"), std::string::npos) << info;

    it::RunResult del = Host({"delete", tta, "artist", "_albumart_1_Front Album Cover"});
    ASSERT_EQ(del.exitCode, 0) << del.err;
    info = Info();
    EXPECT_EQ(info.find("Artist"), std::string::npos) << info;
    EXPECT_EQ(info.find("_albumart_"), std::string::npos) << info;
    EXPECT_NE(info.find(Entry("Title", "Hello")), std::string::npos) << info;
    ExpectAudioKept();

    del = Host({"delete", tta});
    ASSERT_EQ(del.exitCode, 0) << del.err;
    EXPECT_EQ(it::ReadFile(tta), audio);
    info = Info();
    EXPECT_EQ(info.find("ID Tag"), std::string::npos) << info;
    EXPECT_EQ(AsciiLog(errorLog), "");
}

TEST_F(StdTagsThroughPlugin, RefusalsAreReported) {
    std::string wav = dir.File("tone.wav");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=0.1", wav});
    std::string before = it::ReadFile(wav);
    it::RunResult write = Host({"write", wav, "--set", "Title=x"});
    EXPECT_EQ(write.exitCode, 1);
    it::RunResult del = Host({"delete", wav});
    EXPECT_EQ(del.exitCode, 1);
    EXPECT_EQ(it::ReadFile(wav), before);
    std::string log = AsciiLog(errorLog);
    EXPECT_NE(log.find("Tagging not supported for this format.  [clDecoder_ffmpeg::DeleteATag]"), std::string::npos)
        << log;

    write = Host({"write", tta, "--picture", "No Such Type=" + png});
    EXPECT_EQ(write.exitCode, 2);
    write = Host({"write", tta, "--from-json", dir.File("missing.json")});
    EXPECT_EQ(write.exitCode, 1);
    EXPECT_EQ(it::ReadFile(tta).substr(0, audio.size()), audio);
}
