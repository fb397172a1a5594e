// TagID3v2 writing and deleting over files, alone and in the standard flows:
// what the tag holds afterwards, and that the audio behind it is the same
// bytes after every write, move and delete, including a write that runs
// into a file size limit.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include "id3builder.h"
#include "tags/id3v2/tagid3v2.h"
#include "tags/stdtags.h"
#include "tests/tags/tagfixture.h"

using namespace id3test;
using namespace tagtest;

namespace {

// Larger than the 64 KiB step of a tail move, and not a multiple of it.
const std::string kAudio = AudioBytes(200 * 1024 + 77);

size_t TagSize(const std::string& bytes) {
    if (bytes.compare(0, 3, "ID3") != 0) return 0;
    size_t size = 0;
    for (int i = 6; i < 10; ++i) size = (size << 7) | static_cast<uint8_t>(bytes[static_cast<size_t>(i)]);
    return size + 10;
}

class TagID3v2WriteTest : public ::testing::Test {
protected:
    void Make(const std::string& tag, const std::string& tail = "") { WriteFile(path, tag + kAudio + tail); }
    // The tag in front, checked to be followed by exactly the audio (and `tail`).
    std::string TagBytes(const std::string& tail = "") {
        const std::string bytes = ReadFile(path);
        const size_t size = TagSize(bytes);
        EXPECT_EQ(bytes.substr(size), kAudio + tail) << "the audio moved or changed";
        return bytes.substr(0, size);
    }
    bool Write(const IDTags& tags, std::initializer_list<const char16_t*> options = {}) {
        clFile file = OpenFile(path);
        TagID3v2 engine(file);
        for (const char16_t* option : options) engine.SetOption(clString(option));
        return engine.Write(tags, false);
    }
    std::string Read() {
        clFile file = OpenFile(path, clFile::kRead);
        IDTags tags;
        EXPECT_TRUE(TagID3v2(file).Read(tags, true));
        return tagtest::Describe(tags);
    }

    TempDir dir;
    LogCapture log{dir};
    std::string path = dir.File("song.tak");
};

const std::string kPriv = Frame23("PRIV", std::string("owner\0data", 10));
const std::string kOld23 = Tag(3, Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) + kPriv);

}  // namespace

TEST_F(TagID3v2WriteTest, WritesWhatIsAskedAndKeepsTheRest) {
    const std::string png = "\x89PNG\r\n\x1A\n" + std::string(100, 'p');
    IDTags cover = Tags({{"Title", "Old"}});
    cover.AddBinary(S("_albumart_1_Front Album Cover<subdesc>Sleeve"), png.data(), static_cast<uint32_t>(png.size()));
    IDTags noFront;
    noFront.AddBinary(S("_albumart_1_Front Album Cover"), nullptr, 0);
    const struct {
        const char* what;
        IDTags tags;
        std::string frames;   // expected tag, as hand-made frames
        std::initializer_list<const char16_t*> options = {};
    } cases[] = {
        {"new first, then retained", Tags({{"Title", "New"}}),
         Frame23("TIT2", Text("New") + '\0') + Frame23("TALB", Text("Album")) + kPriv},
        {"several values", Tags({{"Artist", "A\rB"}}),
         Frame23("TPE1", Text("A/B") + '\0') + Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) + kPriv},
        {"an empty value deletes", Tags({{"Album", ""}}), Frame23("TIT2", Text("Old")) + kPriv},
        {"a year is a number", Tags({{"year", "2001-03-02"}}),
         Frame23("TYER", Text("2001") + '\0') + Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) + kPriv},
        {"or the whole date", Tags({{"year", "2001-03-02"}}),
         Frame23("TYER", Text("2001-03-02") + '\0') + Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) +
             kPriv,
         {u"WriteFullDateInYearTag"}},
        {"comments join comment", Tags({{"comments", "b"}, {"comment", "a"}}),
         Frame23("COMM", std::string("\0eng\0a\0", 7)) + Frame23("COMM", std::string("\0eng\0b\0", 7)) +
             Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) + kPriv},
        {"a picture", cover,
         Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) + kPriv +
             Frame23("APIC", std::string("\0image/png\0\x03Sleeve\0", 19) + png)},
    };
    for (const auto& c : cases) {
        Make(kOld23);
        ASSERT_TRUE(Write(c.tags, c.options)) << c.what;
        EXPECT_EQ(TagBytes(), Tag(3, c.frames)) << c.what;
    }
    EXPECT_EQ(Read(), "TagVersion=ID3v2.3;Album=Album;Title=Old;_albumart_1_Front Album Cover<subdesc>Sleeve=[108 bytes];");
    ASSERT_TRUE(Write(noFront));   // a picture without data deletes the pictures of its type
    EXPECT_EQ(TagBytes(), kOld23);

    Make(Tag(4, Frame24("TIT2", Text("Old")) + Frame24("TDRC", Text("1999"))));
    ASSERT_TRUE(Write(Tags({{"Year", "2004"}, {"Artist", "A\rB"}})));
    EXPECT_EQ(TagBytes(), Tag(4, Frame24("TDRC", Text("2004") + '\0') +
                                     Frame24("TPE1", Text("A") + '\0' + "B" + '\0') + Frame24("TIT2", Text("Old"))));
    EXPECT_EQ(Read(), "TagVersion=ID3v2.4;Artist=A|B;Title=Old;Year=2004;");
}

TEST_F(TagID3v2WriteTest, DeletesAndRefusals) {
    Make(kOld23);
    {
        clFile file = OpenFile(path);
        TagID3v2(file).DeleteTag(S("Album"));
    }
    EXPECT_EQ(TagBytes(), Tag(3, Frame23("TIT2", Text("Old")) + kPriv));
    ASSERT_TRUE(Write(Tags({{"Title", ""}})));
    EXPECT_EQ(TagBytes(), Tag(3, kPriv));
    {
        clFile file = OpenFile(path);
        TagID3v2(file).Delete();
    }
    EXPECT_EQ(ReadFile(path), kAudio);

    // Deleting the last value deletes the whole tag.
    Make(Tag(3, Frame23("TIT2", Text("Old"))));
    ASSERT_TRUE(Write(Tags({{"Title", ""}})));
    EXPECT_EQ(ReadFile(path), kAudio);

    // Padding and a footer are the tag's: a rewrite or a delete takes them along.
    Make(Tag(3, Frame23("TIT2", Text("Old")) + std::string(100, '\0')));
    ASSERT_TRUE(Write(Tags({{"Title", "x"}})));
    EXPECT_EQ(TagBytes(), Tag(3, Frame23("TIT2", Text("x") + '\0')));
    const std::string footed = Tag(4, Frame24("TIT2", Text("t")) + std::string(7, '\0'), 0x10);
    Make(footed + "3DI" + footed.substr(3, 7));
    {
        clFile file = OpenFile(path);
        TagID3v2(file).Delete();
    }
    EXPECT_EQ(ReadFile(path), kAudio);

    // A tag that doesn't parse, claims more than the file, or whose padding
    // isn't zeros: nothing is proven to be tag bytes, so nothing is written or cut.
    const std::string overrun = Tag(3, Frame23("TIT2", Text("t")) + "TALB" + BigEndian(1000, 4) + std::string(2, '\0'));
    const std::string tooLong = std::string("ID3\x03\0\0\0\x7F\x7F\x7F", 10) + Frame23("TIT2", Text("t"));
    const std::string junkPadding = Tag(3, Frame23("TIT2", Text("t")) + std::string(20, '\0') + "audio?");
    for (const std::string& tag : {overrun, tooLong, junkPadding, footed + "3DX" + footed.substr(3, 7)}) {
        Make(tag);
        EXPECT_FALSE(Write(Tags({{"Title", "x"}})));
        {
            clFile file = OpenFile(path);
            TagID3v2 engine(file);
            engine.Delete();
            EXPECT_NE(engine.Failure, nullptr);
        }
        EXPECT_FALSE(DeleteStdTags(S(path), nullptr, log.Target()));
        EXPECT_EQ(ReadFile(path), tag + kAudio);
    }
    EXPECT_NE(log.Text().find("Could not delete ID3v2 tag  [DeleteStdTags]\r\nThe ID3v2 tag is damaged"),
              std::string::npos) << log.Text();
}

TEST_F(TagID3v2WriteTest, FlowsUpdateEveryKindTheFileHas) {
    const std::string ape = ApeTag({{"Title", "ape"}}).Bytes();
    const std::string v1 = Id3v1("v1");
    // Only ID3v2: that tag is updated and no APE tag appears.
    Make(kOld23);
    ASSERT_TRUE(WriteStdTags(S(path), Tags({{"Title", "New"}}), 1, log.Target()));
    EXPECT_EQ(TagBytes(), Tag(3, Frame23("TIT2", Text("New") + '\0') + Frame23("TALB", Text("Album")) + kPriv));

    // All three: all updated, each in its place.
    Make(kOld23, ape + v1);
    ASSERT_TRUE(WriteStdTags(S(path), Tags({{"Title", "New"}}), 1, log.Target()));
    const std::string newApe = ApeTag({{"Title", "New"}}).Bytes();
    EXPECT_EQ(TagBytes(newApe + Id3v1("New")), Tag(3, Frame23("TIT2", Text("New") + '\0') +
                                                          Frame23("TALB", Text("Album")) + kPriv));
    ASSERT_TRUE(DeleteStdTags(S(path), nullptr, log.Target()));
    EXPECT_EQ(ReadFile(path), kAudio);
    EXPECT_EQ(log.Text(), "");
}

TEST_F(TagID3v2WriteTest, AFileSizeLimitStopsTheWriteBeforeAnyByteMoves) {
    Make(kOld23);
    const std::string before = ReadFile(path);
    const std::string big(300 * 1024, 'c');
    IDTags tags = Tags({{"Title", "New"}});
    tags.AddBinary(S("_albumart_1_Front Album Cover"), big.data(), static_cast<uint32_t>(big.size()));

    // Growing past the limit fails with EFBIG instead of a signal.
    struct sigaction ignore = {}, old = {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGXFSZ, &ignore, &old), 0);
    rlimit saved = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    rlimit limit = saved;
    limit.rlim_cur = before.size() + 100 * 1024;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const bool written = WriteStdTags(S(path), tags, 1, log.Target());
    setrlimit(RLIMIT_FSIZE, &saved);
    sigaction(SIGXFSZ, &old, nullptr);

    EXPECT_FALSE(written);
    EXPECT_NE(log.Text().find("Could not write ID3v2 tag  [WriteStdTags]\r\nThere is no room for the larger ID3v2 tag"),
              std::string::npos) << log.Text();
    EXPECT_EQ(ReadFile(path), before);
    ASSERT_TRUE(WriteStdTags(S(path), tags, 1, log.Target()));   // without the limit it goes through
    TagBytes();
    EXPECT_EQ(Read(), "TagVersion=ID3v2.3;Album=Album;Title=New;_albumart_1_Front Album Cover=[307200 bytes];");
}
