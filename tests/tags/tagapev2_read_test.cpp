// Reading APE tags: where the tag is found, how items become entries, and
// that a damaged tag can neither crash the reader nor make it claim audio.

#include <gtest/gtest.h>

#include "tagfixture.h"
#include "tags/tagapev2.h"
#include "tags/tagid3v1.h"

using namespace tagtest;
using namespace std::string_literals;

namespace {

constexpr size_t kAudio = 1000;

struct ReadResult {
    bool ok = false;
    bool exists = false;
    IDTags tags;
    int64_t tagStart = -2;
    uint32_t version = 0;
    std::string saved;
};

ReadResult ReadFile(const std::string& path, bool keepRaw = false) {
    clFile file = OpenFile(path, clFile::kRead);
    TagAPEv2 engine(file);
    ReadResult result;
    result.exists = engine.Exists();
    result.ok = engine.ReadRaw(result.tags, true, keepRaw);
    result.tagStart = engine.TagStart;
    result.version = engine.TagVersionNumber;
    result.saved.assign(reinterpret_cast<const char*>(engine.SavedID3v1), sizeof engine.SavedID3v1);
    return result;
}

class APEReadTest : public ::testing::Test {
protected:
    ReadResult Read(const std::string& tail, bool keepRaw = false) {
        WriteBytes(path, AudioBytes(kAudio) + tail);
        return ReadFile(path, keepRaw);
    }
    TempDir dir;
    std::string path = dir.File("a.tta");
};

}  // namespace

TEST_F(APEReadTest, FindsTheTagInFrontOfID3v1) {
    ApeTag tag{{{"Title", "T"}, {"Artist", "a\0b"s}}};
    std::string id3 = Id3v1{"x"}.Bytes();
    ReadResult r = Read(tag.Bytes() + id3);
    EXPECT_TRUE(r.ok);
    EXPECT_TRUE(r.exists);
    EXPECT_EQ(Describe(r.tags), "Title=T;Artist=a|b;TagVersion=APEv2;");
    EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio));
    EXPECT_EQ(r.version, 2000u);
    EXPECT_EQ(r.saved, id3);

    // A version 1000 tag has no header and ANSI text.
    ApeTag v1{{{"Title", "Caf\xE9\0"s}}, 1000, false};
    r = Read(v1.Bytes());
    EXPECT_EQ(Describe(r.tags), "Title=Caf\xC3\xA9;TagVersion=APEv1;");
    EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio));
    EXPECT_EQ(r.saved, std::string(128, '\0'));
}

TEST_F(APEReadTest, FilesWithoutATag) {
    WriteBytes(path, AudioBytes(130));
    ReadResult r = ReadFile(path);
    EXPECT_TRUE(r.ok);
    EXPECT_FALSE(r.exists);
    EXPECT_EQ(r.tags.Count(), 0);
    EXPECT_EQ(r.tagStart, 130);

    r = Read(Id3v1{"x"}.Bytes());
    EXPECT_TRUE(r.ok);
    EXPECT_FALSE(r.exists);
    EXPECT_EQ(r.tags.Count(), 0);
    EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio));

    // Small APE tags at the very end aren't taken for ID3v1: at 131 bytes the
    // header's "APETAGEX" shows "TAG" just where an ID3v1 tag would.
    for (size_t total : {size_t{128}, size_t{131}}) {
        std::string value(total - 74, 'v');
        ApeTag small{{{"K", value}}};
        ASSERT_EQ(small.Bytes().size(), total);
        r = Read(small.Bytes());
        EXPECT_TRUE(r.exists) << total;
        EXPECT_EQ(Describe(r.tags), "K=" + value + ";TagVersion=APEv2;") << total;
        EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio)) << total;
        EXPECT_EQ(r.saved, std::string(128, '\0')) << total;
    }

    // An empty tag: footer size 32.
    r = Read(ApeTag{}.Bytes());
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.tags.Count(), 0);
    EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio));

    // An unknown version is no tag for this engine.
    ApeTag v3{{{"Title", "T"}}, 3000};
    r = Read(v3.Bytes());
    EXPECT_TRUE(r.ok);
    EXPECT_FALSE(r.exists);
}

TEST_F(APEReadTest, ItemTextThatLooksLikeID3v1IsNoID3v1) {
    // A value that puts "TAG" 128 bytes before the end of the file.
    std::string value(120, 'v');
    ApeTag tag{{{"K", value}}};
    size_t tagAt = tag.Bytes().size() - 128 - (32 + 8 + 2);
    value.replace(tagAt, 3, "TAG");
    tag = ApeTag{{{"K", value}}};
    ASSERT_EQ(tag.Bytes().substr(tag.Bytes().size() - 128, 3), "TAG");
    ReadResult r = Read(tag.Bytes());
    EXPECT_EQ(Describe(r.tags), "K=" + value + ";TagVersion=APEv2;");
    EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio));
    EXPECT_EQ(r.saved, std::string(128, '\0'));

    clFile file = OpenFile(path, clFile::kRead);
    EXPECT_FALSE(TagID3v1(file).Exists());
}

TEST_F(APEReadTest, ItemsBecomeEntries) {
    std::string png = "\x89PNG\r\n\x1a\n" + std::string(20, 'p');
    ApeTag tag{{
        {"Tool Name", "enc"},
        {"bpm", "120"},
        {"CRC", "abcd"},
        {"COVER ART (FRONT)", "cover.png\0"s + png, 2},
        {"Cover Art (Back)", "b.jpg\0JPEG"s, 2},
        {"Cover Art (Inlay)", "x\0DATA"s, 2},
        {"Cover Art (front)", "no file name", 2},   // dropped, still counted
        {"Cover Art (front)", "only a name\0"s, 2},   // dropped, still counted
        {"Cover art (front)", "text"},
        {"Blob", "\0\1\2"s, 2},
        {"Link", "http://x", 4},
        {"", "empty key"},
        {"Empty", ""},
        {"Multi", "a\0\0b\0"s},
    }};
    ReadResult r = Read(tag.Bytes());
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(Describe(r.tags),
              "Encoded by=enc;tempo=120;_crc=abcd;"
              "_albumart_1_Front Album Cover=[28 bytes];_albumart_2_Back Album Cover=[4 bytes];"
              "_albumart_3=[4 bytes];_albumart_6_Front Album Cover=text;Blob=[3 bytes];Multi=a||b;"
              "TagVersion=APEv2;");
    EXPECT_EQ(DataOf(r.tags[3]), png);
    EXPECT_EQ(DataOf(r.tags[5]), "DATA");
    EXPECT_EQ(DataOf(r.tags[7]), std::string("\0\1\2", 3));
}

TEST_F(APEReadTest, RatingsAndForeignPrefixes) {
    ApeTag tag{{{"Media JukeBox: Rating", "3.5"}, {"rating", "2.75"}, {"Media JukeBox: Mood", "calm"}}};
    ReadResult r = Read(tag.Bytes());
    EXPECT_EQ(Describe(r.tags), "Rating=7;rating=5;Mood=calm;TagVersion=APEv2;");
    r = Read(tag.Bytes(), true);
    EXPECT_EQ(Describe(r.tags), "Media JukeBox: Rating=3.5;rating=2.75;Media JukeBox: Mood=calm;TagVersion=APEv2;");
}

TEST_F(APEReadTest, CountAndSizeFieldsAreNotTrusted) {
    // A count of 1 with two items: one entry, and the tag's start is still right.
    ApeTag one{{{"A", "1"}, {"B", "2"}}};
    one.count = 1;
    ReadResult r = Read(one.Bytes());
    EXPECT_EQ(Describe(r.tags), "A=1;TagVersion=APEv2;");
    EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio));

    // A count far beyond the items ends at the end of the items.
    ApeTag many{{{"A", "1"}}};
    many.count = 0xFFFFFFFF;
    r = Read(many.Bytes());
    EXPECT_EQ(Describe(r.tags), "A=1;TagVersion=APEv2;");
    EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio));

    // Sizes below a footer or beyond the file fail the read, and claim nothing.
    for (int64_t size : {int64_t{31}, int64_t{0}, int64_t{kAudio + 1000}, int64_t{0xFFFFFFFF}}) {
        ApeTag bad{{{"A", "1"}}};
        bad.size = size;
        r = Read(bad.Bytes());
        EXPECT_FALSE(r.ok) << size;
        EXPECT_TRUE(r.exists) << size;
        EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio + bad.Bytes().size())) << size;
    }
}

TEST_F(APEReadTest, DamagedItemsEndTheWalkWithoutClaimingAudio) {
    struct Case {
        const char* what;
        std::string items;
    } cases[] = {
        {"value size beyond the limit", U32(0x1000001) + U32(0) + "Key\0v"s},
        {"value beyond the items", U32(100) + U32(0) + "Key\0v"s},
        {"unterminated key", U32(1) + U32(0) + "KeyWithoutEnd"},
    };
    for (const Case& c : cases) {
        std::string good = ApeItemBytes({"Good", "g"});
        std::string body = good + c.items;
        uint32_t size = static_cast<uint32_t>(body.size() + 32);
        std::string tail = ApeFrameBytes(2000, size, 2, 0xA0000000u) + body + ApeFrameBytes(2000, size, 2, 0x80000000u);
        ReadResult r = Read(tail);
        EXPECT_TRUE(r.ok) << c.what;
        EXPECT_EQ(Describe(r.tags), "Good=g;TagVersion=APEv2;") << c.what;
        // The stated size can't be vouched for: the tag is taken to begin nowhere before its footer's end.
        EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio + tail.size())) << c.what;
    }

    // A size that reaches into the audio: the first "item" is audio and can't be read.
    std::string audioClaim = ApeFrameBytes(2000, 500, 1, 0x80000000u);
    ReadResult r = Read(audioClaim);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.tags.Count(), 0);
    EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio + 32));

    // A header flag without a header in front: the 32 bytes there stay audio.
    ApeTag noHeader{{{"A", "1"}}, 2000, false};
    std::string bytes = noHeader.Bytes();
    bytes.replace(bytes.size() - 12, 4, U32(0x80000000u));
    r = Read(bytes);
    EXPECT_EQ(Describe(r.tags), "A=1;TagVersion=APEv2;");
    EXPECT_EQ(r.tagStart, static_cast<int64_t>(kAudio));
}
