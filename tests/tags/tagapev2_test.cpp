// The APE engine over real files: neither a damaged tag nor a write may ever
// touch the audio in front of the tag.

#include <gtest/gtest.h>

#include "tagfixture.h"
#include "tags/tagapev2.h"
#include "tags/tagid3v1.h"

using namespace tagtest;
using namespace std::string_literals;

namespace {

constexpr auto kStart = static_cast<int64_t>(TagFileTest::kAudio);   // where a tag behind the audio begins

struct ReadResult {
    bool ok = false, exists = false;
    std::string tags, saved;
    int64_t tagStart = -2;
};

class APETest : public TagFileTest {
protected:
    ReadResult Read(bool keepRaw = false) {
        return RunEngine<TagAPEv2>(path, [&](TagAPEv2& engine) {
            ReadResult r;
            r.exists = engine.Exists();
            IDTags tags;
            r.ok = engine.ReadRaw(tags, true, keepRaw);
            r.tags = Describe(tags);
            r.tagStart = engine.TagStart;
            r.saved.assign(reinterpret_cast<const char*>(engine.SavedID3v1), sizeof engine.SavedID3v1);
            return r;
        }, clFile::kRead);
    }
    bool Write(const IDTags& tags, bool merge, bool version1 = false) {
        const bool ok = RunEngine<TagAPEv2>(path, [&](TagAPEv2& engine) {
            if (version1) engine.SetOption(S("APEWriteAPE1Tag"));
            return engine.Write(tags, merge);
        });
        Tail();   // checks the audio
        return ok;
    }
    void DeleteTag(const char* name) {
        RunEngine<TagAPEv2>(path, [&](TagAPEv2& engine) { name ? engine.DeleteTag(S(name)) : engine.Delete(); });
    }
};

}  // namespace

TEST_F(APETest, FindsTheTagAtTheEndOrInFrontOfID3v1) {
    std::string id3 = Id3v1("x");
    Make("", ApeTag({{"Title", "T"}, {"Artist", "a\0b"s}}).Bytes() + id3);
    ReadResult r = Read();
    EXPECT_TRUE(r.ok && r.exists);
    EXPECT_EQ(r.tags, "Title=T;Artist=a|b;TagVersion=APEv2;");
    EXPECT_EQ(r.tagStart, kStart);
    EXPECT_EQ(r.saved, id3);

    Make("", ApeTag({{"Title", "Caf\xE9\0"s}}, 1000, false).Bytes());
    EXPECT_EQ(Read().tags, "Title=Caf\xC3\xA9;TagVersion=APEv1;");
    EXPECT_EQ(Read().tagStart, kStart);

    // Small tags at the very end aren't ID3v1: at 131 bytes the header shows
    // "TAG" just where an ID3v1 tag would, and an item's text may do the same.
    for (size_t total : {size_t{128}, size_t{131}, size_t{200}}) {
        std::string value(total - 74, 'v');
        if (total == 200) value.replace(total - 128 - 42, 3, "TAG");
        Make("", ApeTag({{"K", value}}).Bytes());
        r = Read();
        EXPECT_EQ(r.tags, "K=" + value + ";TagVersion=APEv2;") << total;
        EXPECT_EQ(r.tagStart, kStart) << total;
        EXPECT_EQ(r.saved, std::string(128, '\0')) << total;
        EXPECT_FALSE(RunEngine<TagID3v1>(path, [](TagID3v1& e) { return e.Exists(); }, clFile::kRead)) << total;
    }
}

TEST_F(APETest, ItemsBecomeEntries) {
    std::string png = "\x89PNG\r\n\x1a\n" + std::string(20, 'p');
    Make("", ApeTag({
                    {"Tool Name", "enc"}, {"bpm", "120"}, {"CRC", "abcd"},
                    {"COVER ART (FRONT)", "cover.png\0"s + png, 2}, {"Cover Art (Back)", "b.jpg\0JPEG"s, 2},
                    {"Cover Art (Inlay)", "x\0DATA"s, 2},
                    {"Cover Art (front)", "no file name", 2},     // dropped, still counted
                    {"Cover Art (front)", "only a name\0"s, 2},   // dropped, still counted
                    {"Cover art (front)", "text"}, {"Blob", "\0\1\2"s, 2},
                    {"Link", "http://x", 4},
                    {"", "empty key"}, {"Empty", ""}, {"Multi", "a\0\0b\0"s}, {"Media JukeBox: Rating", "3.5"},
                    {"rating", "2.75"},
                })
             .Bytes());
    EXPECT_EQ(Read().tags, "Encoded by=enc;tempo=120;_crc=abcd;_albumart_1_Front Album Cover=[28 bytes];"
                           "_albumart_2_Back Album Cover=[4 bytes];_albumart_3=[4 bytes];"
                           "_albumart_6_Front Album Cover=text;Blob=[3 bytes];Multi=a||b;Rating=7;rating=5;"
                           "TagVersion=APEv2;");
    EXPECT_NE(Read(true).tags.find("Media JukeBox: Rating=3.5;rating=2.75;"), std::string::npos);
}

TEST_F(APETest, DamagedTagsNeitherFailWildlyNorClaimAudio) {
    // Counts: one entry for a count of 1, the items' end for a huge count.
    for (int64_t count : {int64_t{1}, int64_t{0xFFFFFFFF}}) {
        Make("", ApeTag({{"A", "1"}, {"B", "2"}}).Stating(-1, count).Bytes());
        EXPECT_EQ(Read().tags, count == 1 ? "A=1;TagVersion=APEv2;" : "A=1;B=2;TagVersion=APEv2;");
        EXPECT_EQ(Read().tagStart, kStart);
    }
    // Sizes below a footer or beyond the file fail the read.
    for (int64_t size : {int64_t{31}, int64_t{0}, kStart + 1000, int64_t{0xFFFFFFFF}}) {
        const ApeTag tag = ApeTag({{"A", "1"}}).Stating(size);
        Make("", tag.Bytes());
        ReadResult r = Read();
        EXPECT_TRUE(!r.ok && r.exists) << size;
        EXPECT_EQ(r.tagStart, kStart + static_cast<int64_t>(tag.Bytes().size())) << size;
    }
    // An item that can't be read ends the walk. The items don't bear out the
    // stated size, but a header that agrees with the footer does.
    std::string good = ApeItem("Good", "g").Bytes();
    for (const std::string& bad : {U32(0x1000001) + U32(0) + "Key\0v"s, U32(100) + U32(0) + "Key\0v"s,
                                   U32(1) + U32(0) + "KeyWithoutEnd"}) {
        auto size = static_cast<uint32_t>(good.size() + bad.size() + 32);
        std::string items = good + bad + ApeFrameBytes(2000, size, 2, 0x80000000u);
        for (bool header : {true, false}) {
            std::string tail = (header ? ApeFrameBytes(2000, size, 2, 0xA0000000u) : "") + items;
            Make("", tail);
            ReadResult r = Read();
            EXPECT_TRUE(r.ok);
            EXPECT_EQ(r.tags, "Good=g;TagVersion=APEv2;");
            EXPECT_EQ(r.tagStart, header ? kStart : kStart + static_cast<int64_t>(tail.size()));
        }
    }
    // An unknown version is no tag, 75 bytes of audio.
    Make("", ApeTag({{"T", "t"}}, 3000).Bytes());
    ReadResult unknown = Read();
    EXPECT_TRUE(unknown.ok && !unknown.exists && unknown.tags.empty());
    EXPECT_EQ(unknown.tagStart, kStart + 75);
    // A header flag without a header: HostileApeTest, "header flag without a header".
}

TEST_F(APETest, NewTagsAndTheirItems) {
    // A CR stays inside a value of a single-valued name; names map to keys (UTF-8, multiple values and rating:
    // MutagenInterop).
    Make("", "");
    ASSERT_TRUE(Write(Tags({{"Comment", "x\ry"}, {"Encoded by", "me"}, {"tempo", "99"}, {"_crc", "c"}}), true));
    EXPECT_EQ(Tail(), ApeTag({{"Comment", "x\ry"}, {"Tool Name", "me"}, {"BPM", "99"}, {"CRC", "c"}}).Bytes());

    // Version 1000: no header, ANSI text, a NUL behind every value.
    Make("", "");
    ASSERT_TRUE(Write(Tags({{"Title", "Caf\xC3\xA9"}, {"Genre", "Rock\rPop"}}), true, true));
    EXPECT_EQ(Tail(), ApeTag({{"Title", "Caf\xE9\0"s}, {"Genre", "Rock\0Pop\0"s}}, 1000, false).Bytes());
    ASSERT_TRUE(Write(Tags({{"Album", "X"}}), true));
    EXPECT_EQ(Tail(),
              ApeTag({{"Title", "Caf\xE9\0"s}, {"Genre", "Rock\0Pop\0"s}, {"Album", "X\0"s}}, 1000, false).Bytes());
    // An existing version 2000 tag keeps its version, and its old header goes with it.
    Make("", ApeTag({{"Title", "t"}}).Bytes());
    ASSERT_TRUE(Write(Tags({{"Album", "X"}}), true, true));
    EXPECT_EQ(Tail(), ApeTag({{"Title", "t"}, {"Album", "X"}}).Bytes());
}

TEST_F(APETest, CoversAndDeletion) {
    Make("", "");
    std::string png = "\x89PNG\r\n\x1a\n" + std::string(30, 'p');
    std::string jpeg = "\xFF\xD8\xFF\xE0" + std::string(30, 'j');
    IDTags tags;
    tags.AddBinary(S("_albumart_1_Back Album Cover<subdesc>Inlay"), png.data(), static_cast<uint32_t>(png.size()));
    tags.AddBinary(S("_albumart_2_Media"), jpeg.data(), static_cast<uint32_t>(jpeg.size()));
    tags.AddBinary(S("Blob"), "\0\1", 2);
    ASSERT_TRUE(Write(tags, true));
    EXPECT_EQ(Tail(), ApeTag({{"Cover Art (back)", "C:\\Pretend.png\0"s + png, 2},
                              {"Cover Art (front)", "C:\\Pretend.jpg\0"s + jpeg, 2}, {"Blob", "\0\1"s, 2}})
                          .Bytes());
    // Same number and type replace an old picture, whatever the description.
    IDTags replace;
    replace.AddBinary(S("_albumart_2_Front Album Cover<subdesc>New"), "NEW", 3);
    ASSERT_TRUE(Write(replace, true));
    const ApeItem back("Cover Art (back)", "C:\\Pretend.png\0"s + png, 2);
    const ApeItem front("Cover Art (front)", "C:\\Pretend.jpg\0NEW"s, 2);
    EXPECT_EQ(Tail(), ApeTag({back, front, {"Blob", "\0\1"s, 2}}).Bytes());

    Make("", ApeTag({{"Title", "t"}, {"BPM", "1"}, back, front}).Bytes() + Id3v1("t"));   // "nothing": StdTagsTest
    DeleteTag("tempo");
    EXPECT_EQ(Tail(), ApeTag({{"Title", "t"}, back, front}).Bytes() + Id3v1("t"));
    // APE covers have no description, and an empty one matches every picture
    // without one: removing one cover removes them all.
    DeleteTag("_albumart_1_Front Album Cover");
    EXPECT_EQ(Tail(), ApeTag({{"Title", "t"}}).Bytes() + Id3v1("t"));
    DeleteTag(nullptr);
    EXPECT_EQ(Tail(), Id3v1("t"));
}
