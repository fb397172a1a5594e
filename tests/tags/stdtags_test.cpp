// The standard flows over whole files: which tags are read, updated, created
// and deleted, what the log says when they can't, and that the bytes outside
// the tags never change.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "codecs/decoders/ffmpeg/decoder.h"
#include "tagfixture.h"
#include "tags/stdtags.h"

using namespace tagtest;
using namespace std::string_literals;

namespace {

constexpr size_t kAudio = 5000;

class StdTagsTest : public ::testing::Test {
protected:
    void Make(const std::string& tail) { WriteBytes(path, AudioBytes(kAudio) + tail); }
    std::string Tail() {
        std::string bytes = ReadBytes(path);
        EXPECT_EQ(bytes.substr(0, kAudio), AudioBytes(kAudio));
        return bytes.substr(kAudio);
    }
    std::string ReadAll(std::string* version = nullptr) {
        IDTags tags;
        clString joined;
        EXPECT_TRUE(ReadStdTags(S(path.c_str()), tags, joined, log.Target()));
        if (version) *version = Utf8(joined);
        return Describe(tags);
    }

    TempDir dir;
    LogCapture log{dir};
    std::string path = dir.File("song.tta");
};

IDTags TitleAndArtist() {
    IDTags tags;
    tags.Add(S("Title"), S("New"));
    tags.Add(S("Artist"), S("A\rB"));
    return tags;
}

}  // namespace

TEST_F(StdTagsTest, ReadMergesSourcesFirstWins) {
    Make(ApeTag{{{"Title", "ape"}, {"title", "second"}, {"Album", "x"}}}.Bytes() +
         Id3v1{"id3", "Artist", "", "", "", 4}.Bytes());
    std::string version;
    EXPECT_EQ(ReadAll(&version), "Title=ape;Album=x;Artist=Artist;Track=4;");
    EXPECT_EQ(version, "APEv2 & ID3v1.1");

    // A present but empty APE tag contributes nothing, not even its version.
    Make(ApeTag{}.Bytes() + Id3v1{"id3"}.Bytes());
    EXPECT_EQ(ReadAll(&version), "Title=id3;");
    EXPECT_EQ(version, "ID3v1.0");
    EXPECT_EQ(log.Text(), "");
}

TEST_F(StdTagsTest, ReadFailuresAreLogged) {
    WriteBytes(path, "short");
    IDTags tags;
    clString version;
    EXPECT_FALSE(ReadStdTags(S(path.c_str()), tags, version, log.Target()));
    EXPECT_NE(log.Text().find("Reading tags failed.  [ReadStdTags]\r\n"), std::string::npos) << log.Text();

    EXPECT_FALSE(ReadStdTags(S(dir.File("missing.tta").c_str()), tags, version, log.Target()));
    EXPECT_NE(log.Text().find("Couldn't read tags from file: "), std::string::npos) << log.Text();
}

TEST_F(StdTagsTest, WriteCreatesAnAPETagOnlyWhereThereIsNone) {
    Make("");
    ASSERT_TRUE(WriteStdTags(S(path.c_str()), TitleAndArtist(), 1, log.Target()));
    EXPECT_EQ(Tail(), (ApeTag{{{"Title", "New"}, {"Artist", "A\0B"s}}}.Bytes()));

    // Other families create nothing.
    Make("");
    ASSERT_TRUE(WriteStdTags(S(path.c_str()), TitleAndArtist(), 2, log.Target()));
    EXPECT_EQ(Tail(), "");

    // ID3v1 alone: updated, and a new APE tag goes in front of it.
    Make(Id3v1{"Old", "", "Album"}.Bytes());
    ASSERT_TRUE(WriteStdTags(S(path.c_str()), TitleAndArtist(), 1, log.Target()));
    EXPECT_EQ(Tail(), (ApeTag{{{"Title", "New"}, {"Artist", "A\0B"s}}}.Bytes() +
                       Id3v1{"New", "A; B", "Album"}.Bytes()));
    EXPECT_EQ(log.Text(), "");
}

TEST_F(StdTagsTest, WriteUpdatesBothTagsAndKeepsTheirOrder) {
    Make(ApeTag{{{"Album", "Old album"}, {"Title", "Old"}}}.Bytes() + Id3v1{"Old", "X", "Old album"}.Bytes());
    ASSERT_TRUE(WriteStdTags(S(path.c_str()), TitleAndArtist(), 1, log.Target()));
    EXPECT_EQ(Tail(), (ApeTag{{{"Album", "Old album"}, {"Title", "New"}, {"Artist", "A\0B"s}}}.Bytes() +
                       Id3v1{"New", "A; B", "Old album"}.Bytes()));
    std::string version;
    EXPECT_EQ(ReadAll(&version), "Album=Old album;Title=New;Artist=A|B;");
    EXPECT_EQ(version, "APEv2 & ID3v1.0");
}

TEST_F(StdTagsTest, DeleteAllRemovesEveryKind) {
    Make(ApeTag{{{"Title", "t"}}}.Bytes() + Id3v1{"t"}.Bytes());
    ASSERT_TRUE(DeleteStdTags(S(path.c_str()), nullptr, log.Target()));
    EXPECT_EQ(Tail(), "");

    Make(ApeTag{{{"Title", "t"}}}.Bytes() + Id3v1{"t"}.Bytes());
    ASSERT_TRUE(DeleteStdTags(S(path.c_str()), u"", log.Target()));
    EXPECT_EQ(Tail(), "");
}

TEST_F(StdTagsTest, DeleteByNameNeverRemovesAWholeTag) {
    Make(ApeTag{{{"Title", "t"}, {"Artist", "a"}, {"[Empty]", "e"}}}.Bytes() + Id3v1{"t", "a"}.Bytes());
    ASSERT_TRUE(DeleteStdTags(S(path.c_str()), u"Title\0Nothing\0", log.Target()));
    EXPECT_EQ(Tail(), (ApeTag{{{"Artist", "a"}, {"[Empty]", "e"}}}.Bytes() + Id3v1{"", "a"}.Bytes()));

    // "[Empty]" stands for the empty name, not for an item of that name.
    std::string before = ReadBytes(path);
    ASSERT_TRUE(DeleteStdTags(S(path.c_str()), u"[Empty]\0", log.Target()));
    EXPECT_EQ(ReadBytes(path), before);

    // A tag whose last value goes has nothing left to write: it is gone, the other stays.
    ASSERT_TRUE(DeleteStdTags(S(path.c_str()), u"artist\0", log.Target()));
    EXPECT_EQ(Tail(), (ApeTag{{{"[Empty]", "e"}}}.Bytes()));
}

TEST_F(StdTagsTest, FilesThatCannotBeUpdatedAreLeftAlone) {
    Make(ApeTag{{{"Title", "t"}}}.Bytes());
    std::string before = ReadBytes(path);
    ASSERT_EQ(::chmod(dir.Path().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0444), 0);

    // Root may write anything: the flows run in a child that gave that up.
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (::geteuid() == 0 && ::setuid(65534) != 0) ::_exit(3);
        bool wrote = WriteStdTags(S(path.c_str()), TitleAndArtist(), 1, log.Target());
        bool deleted = DeleteStdTags(S(path.c_str()), nullptr, log.Target());
        ::_exit(!wrote && !deleted ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(ReadBytes(path), before);
    std::string text = log.Text();
    EXPECT_NE(text.find("Couldn't open file for updating: "), std::string::npos) << text;
    EXPECT_NE(text.find("[WriteStdTags]\r\n"), std::string::npos) << text;
    EXPECT_NE(text.find("[DeleteStdTags]\r\n"), std::string::npos) << text;

    EXPECT_FALSE(WriteStdTags(S(dir.File("no/such/folder.tta").c_str()), TitleAndArtist(), 1, log.Target()));
}

TEST_F(StdTagsTest, WriteIDTagsDispatchesByExtension) {
    IDTags tags = TitleAndArtist();
    clBuffer blob;
    tags.Serialise(blob);
    DecoderCreateInfo info{log.Target()->errorLog, 0, 0};
    clDecoder_ffmpeg decoder(info);
    for (const char* name : {"song.flac", "song.mka", "song"}) {
        std::string other = dir.File(name);
        WriteBytes(other, AudioBytes(kAudio));
        EXPECT_FALSE(clDecoder_ffmpeg::WriteIDTags(&decoder, S(other.c_str()).Text(), blob.Data(), blob.Size()));
        EXPECT_EQ(ReadBytes(other), AudioBytes(kAudio));
    }
    EXPECT_NE(log.Text().find("Tagging not supported for this format.  [clDecoder_ffmpeg::WriteIDTags]\r\n"),
              std::string::npos)
        << log.Text();

    for (const char* name : {"a.TAK", "a.tta", "a.dts", "a.dtshd"}) {
        std::string file = dir.File(name);
        WriteBytes(file, AudioBytes(kAudio));
        ASSERT_TRUE(clDecoder_ffmpeg::WriteIDTags(nullptr, S(file.c_str()).Text(), blob.Data(), blob.Size()));
        ApeTag expected({{"Title", "New"}, {"Artist", "A\0B"s}});
        EXPECT_EQ(ReadBytes(file), AudioBytes(kAudio) + expected.Bytes());
    }
}
