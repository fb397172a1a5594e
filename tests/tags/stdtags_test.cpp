// The standard flows over whole files: which tags are read, updated, created
// and deleted, what the log says when they can't, and that the bytes outside
// the tags never change.

#include <gtest/gtest.h>

#include "codecs/decoders/ffmpeg/decoder.h"
#include "id3v2/id3builder.h"
#include "tagfixture.h"
#include "tags/stdtags.h"

using namespace tagtest;
using namespace std::string_literals;

namespace {

class StdTagsTest : public TagFileTest {
protected:
    std::string ReadAll(std::string& version) {
        IDTags tags;
        clString joined;
        EXPECT_TRUE(ReadStdTags(S(path), tags, joined, log.Target()));
        version = Utf8(joined);
        return Describe(tags);
    }
    bool Write(int family = 1) { return WriteStdTags(S(path), TitleAndArtist(), family, log.Target()); }
    static IDTags TitleAndArtist() { return Tags({{"Title", "New"}, {"Artist", "A\rB"}}); }

    const std::string newApe = ApeTag({{"Title", "New"}, {"Artist", "A\0B"s}}).Bytes();
};

}  // namespace

TEST_F(StdTagsTest, ReadMergesSourcesFirstWins) {
    using namespace id3test;
    const std::string id3v2 = Tag(3, Frame23("TIT2", Text("v2")) + Frame23("TALB", Text("v2 album")) +
                                         Frame23("TCON", Text("(8)")) + Frame23("APIC", "\0image/png\0\x03\0img"s));
    WriteFile(path, id3v2 + AudioBytes(kAudio) + ApeTag({{"Title", "ape"}, {"title", "second"}, {"Composer", "c"}}).Bytes() +
                        Id3v1("id3", "Artist", "v1 album", "1999", "", 4));
    std::string version;
    EXPECT_EQ(ReadAll(version), "Title=ape;Composer=c;Album=v2 album;Genre=Jazz;_albumart_1_Front Album Cover=[3 bytes];"
                                "Artist=Artist;Year=1999;Track=4;");
    EXPECT_EQ(version, "APEv2 & ID3v2.3 & ID3v1.1");
    // A present but empty APE tag contributes nothing, not even its version.
    Make(ApeTag().Bytes() + Id3v1("id3"));
    EXPECT_EQ(ReadAll(version), "Title=id3;");
    EXPECT_EQ(version, "ID3v1.0");
    EXPECT_EQ(log.Text(), "");
    // Items that the walk can't read: those in front are shown, and the log says more was there.
    Make(ApeTag({{"Title", "t"}, {"Album", "a"}}, 2000, false).Stating(-1, 1).Bytes());
    EXPECT_EQ(ReadAll(version), "Title=t;");
    EXPECT_EQ(log.Text(), "The APE tag has an item that can't be read; only the items in front of it are shown."
                          "  [ReadStdTags]\r\n");

    IDTags tags;
    clString joined;
    WriteFile(path, "short");
    EXPECT_FALSE(ReadStdTags(S(path), tags, joined, log.Target()));
    EXPECT_NE(log.Text().find("Reading tags failed.  [ReadStdTags]\r\n"), std::string::npos) << log.Text();
    EXPECT_FALSE(ReadStdTags(S(dir.File("missing.tta")), tags, joined, log.Target()));
    EXPECT_NE(log.Text().find("Couldn't read tags from file: "), std::string::npos) << log.Text();
}

TEST_F(StdTagsTest, WriteUpdatesWhatThereIsAndCreatesOnlyAPE) {
    Make("");   // a new APE tag in family 1: WriteIDTagsDispatchesByExtension
    ASSERT_TRUE(Write(2));   // other families create nothing
    EXPECT_EQ(Tail(), "");
    // ID3v1 alone: updated, and a new APE tag goes in front of it.
    Make(Id3v1("Old", "", "Album"));
    ASSERT_TRUE(Write());
    EXPECT_EQ(Tail(), newApe + Id3v1("New", "A; B", "Album"));
    // Both: HostileApeTest's intact tag with ID3v1. Nothing to change rewrites
    // nothing (a rewrite keeps a cover's stored name: MutagenInterop).
    const std::string tagged = ApeTag({{"Title", "t"}, {"Cover Art (front)", "cover.png\0\x89PNG"s, 2}}).Bytes();
    for (const IDTags& same : {IDTags(), Tags({{"Title", "t"}})}) {
        Make(tagged + Id3v1("t"));
        ASSERT_TRUE(WriteStdTags(S(path), same, 1, log.Target()));
        EXPECT_EQ(Tail(), tagged + Id3v1("t"));
    }
    EXPECT_EQ(log.Text(), "");
}

TEST_F(StdTagsTest, DeleteAllOrByName) {
    for (const char16_t* all : {static_cast<const char16_t*>(nullptr), u""}) {
        Make(ApeTag({{"Title", "t"}}).Bytes() + Id3v1("t"));
        ASSERT_TRUE(DeleteStdTags(S(path), all, log.Target()));
        EXPECT_EQ(Tail(), "");
    }
    // A name list never deletes a whole tag.
    Make(ApeTag({{"Title", "t"}, {"Artist", "a"}, {"[Empty]", "e"}}).Bytes() + Id3v1("t", "a"));
    ASSERT_TRUE(DeleteStdTags(S(path), u"Title\0Nothing\0", log.Target()));
    EXPECT_EQ(Tail(), ApeTag({{"Artist", "a"}, {"[Empty]", "e"}}).Bytes() + Id3v1("", "a"));
    // "[Empty]" stands for the empty name, not for an item of that name.
    std::string before = ReadFile(path);
    ASSERT_TRUE(DeleteStdTags(S(path), u"[Empty]\0", log.Target()));
    EXPECT_EQ(ReadFile(path), before);
    // A tag whose last value goes has nothing left to write: it is gone, the other stays.
    ASSERT_TRUE(DeleteStdTags(S(path), u"artist\0", log.Target()));
    EXPECT_EQ(Tail(), ApeTag({{"[Empty]", "e"}}).Bytes());
}

TEST_F(StdTagsTest, FilesThatCannotBeUpdatedAreLeftAlone) {
    Make(ApeTag({{"Title", "t"}}).Bytes());
    std::string before = ReadFile(path);
    EXPECT_TRUE(it::RunLockedOut(dir.Path(), path, [&] {
        const bool wrote = Write();
        const bool deleted = DeleteStdTags(S(path), nullptr, log.Target());
        return !wrote && !deleted;
    }));
    EXPECT_EQ(ReadFile(path), before);
    std::string text = log.Text();
    EXPECT_NE(text.find("Couldn't open file for updating: "), std::string::npos) << text;
    EXPECT_NE(text.find("[WriteStdTags]\r\n"), std::string::npos) << text;
    EXPECT_NE(text.find("[DeleteStdTags]\r\n"), std::string::npos) << text;
    EXPECT_FALSE(WriteStdTags(S(dir.File("no/such/folder.tta")), TitleAndArtist(), 1, log.Target()));
}

TEST_F(StdTagsTest, WriteIDTagsDispatchesByExtension) {
    clBuffer blob;
    TitleAndArtist().Serialise(blob);
    clDecoder_ffmpeg decoder(DecoderCreateInfo{log.Target()->errorLog, 0, 0});
    for (const char* name : {"song.flac", "song.mka", "song", "a.TAK", "a.tta", "a.dts", "a.dtshd"}) {
        std::string file = dir.File(name);
        WriteFile(file, AudioBytes(kAudio));
        bool taggable = std::string(name).rfind("a.", 0) == 0;
        EXPECT_EQ(clDecoder_ffmpeg::WriteIDTags(&decoder, S(file).Text(), blob.Data(), blob.Size()), taggable);
        EXPECT_EQ(ReadFile(file), AudioBytes(kAudio) + (taggable ? newApe : "")) << name;
    }
    EXPECT_NE(log.Text().find("Tagging not supported for this format.  [clDecoder_ffmpeg::WriteIDTags]\r\n"),
              std::string::npos) << log.Text();
    // A URL is no file that the engines may touch, whatever its name.
    const size_t logged = log.Text().size();
    EXPECT_FALSE(decoder.DeleteATag(S("file://" + dir.File("a.tta")).Text(), nullptr));
    EXPECT_EQ(log.Text().substr(logged), "Tagging not supported for this format.  [clDecoder_ffmpeg::DeleteATag]\r\n");
}

TEST_F(StdTagsTest, FlowsLeaveNoDescriptorOpen) {
    auto openDescriptors = [] { return it::CurrentResources().descriptors; };
    Make(Id3v1("t"));
    const auto before = openDescriptors();
    for (int i = 0; i < 20; ++i) {
        IDTags tags;
        clString version;
        ASSERT_TRUE(Write());
        ASSERT_TRUE(ReadStdTags(S(path), tags, version, log.Target()));
        ASSERT_TRUE(DeleteStdTags(S(path), u"Title\0", log.Target()));
        ASSERT_TRUE(DeleteStdTags(S(path), nullptr, log.Target()));
        ASSERT_FALSE(ReadStdTags(S(dir.File("missing.tta")), tags, version, log.Target()));
    }
    EXPECT_EQ(openDescriptors(), before);
}
