// The standard flows over whole files: which tags are read, updated, created and deleted, what the log
// says when they can't, and that no byte outside the tags ever changes, none at all when refused.

#include <gtest/gtest.h>

#include "codecs/decoders/ffmpeg/decoder.h"
#include "tagfixture.h"
#include "tags/stdtags.h"

using namespace tagtest;

namespace {

using StdTagsTest = TagFileTest;

FlowRow::Flow Write(IDTags tags, int family = 1) {
    return [tags, family](const std::string& p, const clLogTarget* log) { return WriteStdTags(S(p), tags, family, log); };
}
FlowRow::Flow WriteTitle(int family = 1) { return Write(Tags({{"Title", "New"}}), family); }
FlowRow::Flow Delete(const char16_t* names) {
    return [names](const std::string& p, const clLogTarget* log) { return DeleteStdTags(S(p), names, log); };
}

const ApeItem kTitle{"Title", "t"}, kAlbum{"Album", "a"};
const std::string kNew23 = Tag(3, Frame23("TIT2", Text("New") + '\0') + Frame23("TALB", Text("Album")) + kPriv);

// Title and album around an item whose value size runs past the footer.
std::string DamagedInTheMiddle(bool header) {
    const std::string items = kTitle.Bytes() + U32(500) + U32(0) + "Bad\0v"s + kAlbum.Bytes();
    const auto size = static_cast<uint32_t>(items.size() + 32);
    return (header ? ApeFrameBytes(2000, size, 3, 0xA0000000u) : "") + items + ApeFrameBytes(2000, size, 3, header ? 0x80000000u : 0);
}

}  // namespace

// Damaged and hostile APE tags, each written, deleted whole and by the name
// "Album", with no ID3v1 tag behind, one with fields, and a blank one, which is
// updated in place: behind it, a new one would hide the APE tag.
TEST_F(StdTagsTest, HostileApeTagsAreWrittenAndDeletedOrLeftAlone) {
    const std::string refused = kRefused, damaged = "The APE tag is damaged";
    std::string noHeader = ApeTag({kTitle, kAlbum}, 2000, false).Bytes();   // a header flag, but audio in front
    noHeader.replace(noHeader.size() - 12, 4, U32(0x80000000u));
    const std::string rewritten = ApeTag({{"Title", "New"}, kAlbum}).Bytes(), titleLeft = ApeTag({kTitle}).Bytes();
    const std::string onlyNew = ApeTag({{"Title", "New"}}).Bytes();
    // A footer of no items that claims the audio in front, or more than the file.
    const std::string emptyFooter = ApeFrameBytes(2000, 1032, 0, 0), emptyPastFile = ApeFrameBytes(2000, 1000000, 0, 0x80000000u);
    const struct { const char* what; std::string tag, afterWrite, afterDelete, afterDeleteAlbum; const char* reason; } cases[] = {
        {"intact", ApeTag({kTitle, kAlbum}).Bytes(), rewritten, "", titleLeft, ""},
        {"count 0, size into the audio", emptyFooter, onlyNew, "", emptyFooter, ""},
        {"count 0, size past the file", emptyPastFile, onlyNew, "", emptyPastFile, ""},
        {"size past the file", ApeTag({kTitle, kAlbum}).Stating(1000000).Bytes(), refused, refused, refused, damaged.c_str()},
        {"size below the items", ApeTag({kTitle, kAlbum}).Stating(40).Bytes(), refused, refused, refused, damaged.c_str()},
        {"size below a footer", ApeTag({kTitle, kAlbum}).Stating(31).Bytes(), refused, refused, refused, damaged.c_str()},
        {"count below the items", ApeTag({kTitle, kAlbum}, 2000, false).Stating(-1, 1).Bytes(), refused, refused, refused, damaged.c_str()},
        {"header flag without a header", noHeader, rewritten, "", titleLeft, ""},
        {"damaged item, header", DamagedInTheMiddle(true), refused, "", refused, "The APE tag has items that can't be read"},
        {"damaged item, no header", DamagedInTheMiddle(false), refused, refused, refused, damaged.c_str()},
    };
    const struct { std::string before, afterWrite, afterDelete, afterDeleteAlbum; } id3v1s[] = {
        {"", "", "", ""}, {Id3v1("Old", "Artist", "Album"), Id3v1("New", "Artist", "Album"), "", Id3v1("Old", "Artist")},
        {Id3v1(""), Id3v1("New"), "", Id3v1("")}};
    for (const auto& c : cases) {
        for (const auto& v1 : id3v1s) {
            const auto Row = [&](const char* op, FlowRow::Flow flow, const std::string& ape, const std::string& v1After, const char* words) {
                const bool no = ape == refused;
                Check({std::string(c.what) + ", " + op + (v1.before.empty() ? "" : ", with ID3v1"), "", c.tag + v1.before, flow, "",
                       no ? refused : ape + v1After, no ? std::vector<std::string>{words, c.reason} : std::vector<std::string>{}});
            };
            const char *notWritten = "Could not write APE tag  [WriteStdTags]\r\n", *notDeleted = "Could not delete APE tag  [DeleteStdTags]\r\n";
            Row("write", WriteTitle(), c.afterWrite, v1.afterWrite, notWritten);
            Row("delete", Delete(nullptr), c.afterDelete, v1.afterDelete, notDeleted);
            Row("delete Album", Delete(u"Album\0"), c.afterDeleteAlbum, v1.afterDeleteAlbum, notDeleted);
        }
    }
}

TEST_F(StdTagsTest, WritesAndDeletes) {
    const std::string cover = ApeTag({kTitle, {"Cover Art (front)", "cover.png\0\x89PNG"s, 2}}).Bytes();
    // Values above 16 MiB, as other writers make them for large covers: bounded by the tag alone.
    const ApeItem huge{"Big", std::string(0x1000001, 'x'), 2};
    IDTags big = Tags({{"Title", "New"}});
    big.AddBinary(S("Big"), huge.value.data(), static_cast<uint32_t>(huge.value.size()));
    const std::string ape3 = ApeTag({kTitle, {"Artist", "a"}, {"[Empty]", "e"}}).Bytes();
    const std::string refused = kRefused, keyRefused = "can't be an APE item key";
    const FlowRow rows[] = {
        // A new APE tag, alone or in front of ID3v1, and multiple values: MutagenApe.
        {"no tag, other families create nothing", "", "", WriteTitle(2), "", ""},
        {"nothing to write rewrites nothing", "", cover + Id3v1("t"), Write(IDTags()), "", cover + Id3v1("t")},
        {"the same value rewrites nothing", "", cover + Id3v1("t"), Write(Tags({{"Title", "t"}})), "", cover + Id3v1("t")},
        {"a large value is written", "", "", Write(big), "", ApeTag({{"Title", "New"}, huge}).Bytes()},
        {"a large value is read and kept", "", ApeTag({huge, kTitle}).Bytes(), WriteTitle(), "", ApeTag({huge, {"Title", "New"}}).Bytes()},
        {"all three updated, each in its place", kOld23, ApeTag({{"Title", "ape"}}).Bytes() + Id3v1("v1"), WriteTitle(), kNew23,
         ApeTag({{"Title", "New"}}).Bytes() + Id3v1("New")},
        {"delete all three", kOld23, ape3 + Id3v1("t"), Delete(nullptr), "", ""},
        {"delete all, empty list", "", ape3 + Id3v1("t"), Delete(u""), "", ""},
        // A name list never deletes a whole tag; "[Empty]" stands for the empty name.
        {"delete by name", "", ape3 + Id3v1("t", "a"), Delete(u"Title\0Nothing\0"), "",
         ApeTag({{"Artist", "a"}, {"[Empty]", "e"}}).Bytes() + Id3v1("", "a")},
        {"delete [Empty]", "", ape3, Delete(u"[Empty]\0"), "", ape3},
        {"a tag whose last value goes is gone", "", ApeTag({{"Artist", "a"}, {"[Empty]", "e"}}).Bytes() + Id3v1("", "a"),
         Delete(u"artist\0"), "", ApeTag({{"[Empty]", "e"}}).Bytes()},
    };
    // Every flow, refused ones too, closes what it opened.
    const int descriptors = it::CurrentResources().descriptors;
    for (const FlowRow& row : rows) Check(row);
    EXPECT_EQ(it::CurrentResources().descriptors, descriptors) << "a flow left a descriptor open";
    // Keys that the format forbids, new to the tag, are refused.
    for (const std::string& key : {"T"s, std::string(256, 'k'), "Tab\there"s, "T\xC3\xADtle"s, "id3"s, "Tag"s, "OGGS"s, "mp+"s}) {
        Check({key, "", ApeTag({kTitle, kAlbum}).Bytes() + Id3v1("Old"), Write(Tags({{"Title", "New"}, {key.c_str(), "v"}})),
               "", kRefused, {"Could not write APE tag  [WriteStdTags]\r\n", keyRefused}});
    }
}

TEST_F(StdTagsTest, ReadMergesSourcesFirstWins) {
    IDTags tags;
    clString joined;
    const auto Read = [&](const std::string& front, const std::string& tail) {
        Make(front, tail);
        tags.Clear();
        EXPECT_TRUE(ReadStdTags(S(path), tags, joined, log.Target()));
        return Describe(tags) + " / " + Utf8(joined);
    };
    EXPECT_EQ(Read(Tag(3, Frame23("TIT2", Text("v2")) + Frame23("TALB", Text("v2 album")) + Frame23("TCON", Text("(8)")) +
                              Frame23("APIC", "\0image/png\0\x03\0img"s)),
                   ApeTag({{"Title", "ape"}, {"title", "second"}, {"Composer", "c"}}).Bytes() + Id3v1("id3", "Artist", "v1 album", "1999", "", 4)),
              "Title=ape;Composer=c;Album=v2 album;Genre=Jazz;_albumart_1_Front Album Cover=[3 bytes];Artist=Artist;Year=1999;Track=4; / "
              "APEv2 & ID3v2.3 & ID3v1.1");
    // A present but empty APE tag contributes nothing, not even its version.
    EXPECT_EQ(Read("", ApeTag().Bytes() + Id3v1("id3")), "Title=id3; / ID3v1.0");
    EXPECT_EQ(log.Text(), "");
    // Items that the walk can't read: those in front are shown, and the log says more was there.
    EXPECT_EQ(Read("", ApeTag({{"Title", "t"}, {"Album", "a"}}, 2000, false).Stating(-1, 1).Bytes()), "Title=t; / APEv2");
    EXPECT_EQ(log.Text(), "The APE tag has an item that can't be read; only the items in front of it are shown.  [ReadStdTags]\r\n");
    WriteFile(path, "short");
    EXPECT_FALSE(ReadStdTags(S(path), tags, joined, log.Target()));
    EXPECT_NE(log.Text().find("Reading tags failed.  [ReadStdTags]\r\n"), std::string::npos) << log.Text();
    EXPECT_FALSE(ReadStdTags(S(dir.File("missing.tta")), tags, joined, log.Target()));
    EXPECT_NE(log.Text().find("Couldn't read tags from file: "), std::string::npos) << log.Text();
}

TEST_F(StdTagsTest, FilesThatCannotBeUpdatedAreLeftAlone) {
    Make("", ApeTag({kTitle}).Bytes());
    const std::string before = ReadFile(path);
    EXPECT_TRUE(it::RunLockedOut(dir.Path(), path, [&] {
        return !WriteTitle()(path, log.Target()) && !DeleteStdTags(S(path), nullptr, log.Target());
    }));
    EXPECT_EQ(ReadFile(path), before);
    const std::string text = log.Text();
    for (const char* piece : {"Couldn't open file for updating: ", "[WriteStdTags]\r\n", "[DeleteStdTags]\r\n"}) {
        EXPECT_NE(text.find(piece), std::string::npos) << text;
    }
    EXPECT_FALSE(WriteTitle()(dir.File("no/such/folder.tta"), log.Target()));
}

// Which extensions and URLs have a tag family: PluginTest.CanWriteIDTagsByExtension; the
// leak of a descriptor over many writes: Concurrency.ManyCyclesLeaveNothingBehind.
TEST_F(StdTagsTest, WriteIDTagsDispatchesByFamily) {
    clBuffer blob;
    Tags({{"Title", "New"}}).Serialise(blob);
    clDecoder_ffmpeg decoder(DecoderCreateInfo{log.Target()->errorLog, 0, 0});
    for (const char* name : {"song.flac", "a.TAK"}) {
        const std::string file = dir.File(name);
        WriteFile(file, audio);
        const bool taggable = std::string(name) == "a.TAK";
        EXPECT_EQ(clDecoder_ffmpeg::WriteIDTags(&decoder, S(file).Text(), blob.Data(), blob.Size()), taggable);
        EXPECT_EQ(ReadFile(file), audio + (taggable ? ApeTag({{"Title", "New"}}).Bytes() : "")) << name;
    }
    // A URL is no file that the engines may touch, whatever its name.
    EXPECT_FALSE(decoder.DeleteATag(S("file://" + dir.File("a.TAK")).Text(), nullptr));
    EXPECT_EQ(log.Text(), "Tagging not supported for this format.  [clDecoder_ffmpeg::WriteIDTags]\r\n"
                          "Tagging not supported for this format.  [clDecoder_ffmpeg::DeleteATag]\r\n");
}
