// TagID3v2 reading over files: finding the tag, art keys, the table of
// contents and the band-name repair.

#include <gtest/gtest.h>

#include "tests/tags/tagfixture.h"
#include "tags/id3v2/tagid3v2.h"

using namespace tagtest;

namespace {

class TagID3v2ReadTest : public ::testing::Test {
protected:
    std::string ReadTags(const std::string& bytes, bool wantVersion = true) {
        WriteFile(path, bytes);
        return ReadWith<TagID3v2>(path, wantVersion);
    }
    uint64_t SizeOnDisk(const std::string& bytes) {
        WriteFile(path, bytes);
        return RunEngine<TagID3v2>(path, [](TagID3v2& tag) {
            EXPECT_EQ(tag.Exists(), tag.tagSizeOnDisk() != 0);
            return tag.tagSizeOnDisk();
        }, clFile::kRead);
    }

    TempDir dir;
    std::string path = dir.File("song.tak");
};

std::string Apic(uint8_t type, const std::string& description, const std::string& image, char encoding = 0) {
    return std::string(1, encoding) + "image/png" + '\0' + static_cast<char>(type) + description + '\0' + image;
}

}  // namespace

TEST_F(TagID3v2ReadTest, EntriesPicturesAndRepairs) {
    const std::string audio = AudioBytes(500);
    const std::string frames =
        Frame23("TPE1", Text("ac/dc")) + Frame23("TPE2", Text("A/B")) + Frame23("TSOP", Text("AC / DC")) +
        Frame23("TXXX", Text(std::string("_hidden\0x", 9))) +
        Frame23("APIC", Apic(3, "Cover", "front")) + Frame23("APIC", std::string("\0image/png\0\x03", 12)) +
        Frame23("APIC", Apic(0, "", "zero")) + Frame23("MCDI", "toc1") + Frame23("MCDI", "toc2");
    EXPECT_EQ(ReadTags(Tag(3, frames) + audio),
              "TagVersion=ID3v2.3;Album Artist=A|B;Artist=ac/dc;Artist Sort=AC/DC;"
              "_albumart_1_Front Album Cover<subdesc>Cover=[5 bytes];_albumart_2_Undefined=[4 bytes];_cdtoc=[4 bytes];");
    EXPECT_EQ(ReadTags(Tag(4, Frame24("TPE1", Text("ac/dc"))) + audio, false), "Artist=ac/dc;");
    EXPECT_EQ(ReadTags(Tag(2, Frame22("TT2", Text("t"))) + audio), "TagVersion=ID3v2.2;Title=t;");
    // A tag that shows nothing shows no version either.
    EXPECT_EQ(ReadTags(Tag(3, Frame23("PRIV", "o\1")) + audio), "");
    // Only the first of two tags in a row is this engine's.
    EXPECT_EQ(ReadTags(Tag(3, Frame23("TIT2", Text("one"))) + Tag(3, Frame23("TALB", Text("two"))) + audio),
              "TagVersion=ID3v2.3;Title=one;");
    // No tag, a damaged header, an empty file: no entries, and no failure.
    for (const std::string& bytes : {audio, std::string("ID3\x03\0\0\0\0\x80\0", 10) + audio, std::string()}) {
        EXPECT_EQ(ReadTags(bytes), "");
    }
}

TEST_F(TagID3v2ReadTest, SizeOnDisk) {
    EXPECT_EQ(SizeOnDisk(Tag(3, "abc") + "audio"), 13u);
    EXPECT_EQ(SizeOnDisk(Tag(4, "abc", 0x10) + "audio"), 23u);   // with a footer
    EXPECT_EQ(SizeOnDisk(std::string("ID3\x07\0\0\0\0\0\x05", 10)), 15u);   // the version isn't looked at
    EXPECT_EQ(SizeOnDisk("ID3\x03\0\0\0\0"), 0u);
    EXPECT_EQ(SizeOnDisk(std::string("ID3\x03\0\0\0\0\x80\0", 10)), 0u);
    EXPECT_EQ(SizeOnDisk(std::string("ID3\x03\0\x01\0\0\0\0", 10)), 0u);
    EXPECT_EQ(SizeOnDisk(std::string("ID2\x03\0\0\0\0\0\0", 10)), 0u);
}

TEST_F(TagID3v2ReadTest, RejoinSlashNames) {
    const struct {
        const char16_t* in;
        const char16_t* out;
    } cases[] = {{u"AC\rDC", u"AC/DC"}, {u"ac \r dc", u"ac / dc"}, {u"A\rB", u"A\rB"}, {u"Body\rHead", u"Body/Head"},
                 {u"Vio\rMir\u00C9", u"Vio\rMir\u00C9"}, {u"M\rA\rR\rR\rS", u"M/A/R/R/S"}};
    for (const auto& c : cases) {
        clString value(c.in);
        TagID3v2::rejoinSlashName(value);
        EXPECT_TRUE(value == clString(c.out)) << Utf8(value);
    }
}
