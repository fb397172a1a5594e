// EBML var-ints, then Tags and Attachments read from hand-built files: where
// elements are found, how names and levels map to tags, what damage does.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"
#include "ebmlbytes.h"
#include "tests/tags/tagfixture.h"

using namespace ebmltest;
using namespace tagtest;

namespace {

std::string Hex(const std::vector<uint8_t>& bytes) {
    std::string out;
    for (uint8_t b : bytes) out += std::string(out.empty() ? "" : " ") + "0123456789ABCDEF"[b >> 4] + "0123456789ABCDEF"[b & 15];
    return out;
}
std::string Encoded(uint64_t value) {
    EBML::StreamWritableSimple sink;
    EBML::WriteVarInt(sink, value);
    return Hex(sink.Take());
}
uint64_t SizeOf(const std::string& bytes) {
    EBML::StreamMem stream(bytes.data(), bytes.size());
    return EBML::ReadElementSize(stream);
}
std::string TagWith(const std::string& targets, std::initializer_list<std::string> simples) {
    std::string body = targets.empty() ? "" : El(kTargets, targets);
    for (const std::string& simple : simples) body += simple;
    return El(kTag, body);
}

class MatroskaRead : public ::testing::Test {
protected:
    // The tags as Describe shows them, or "fail:" and the log's text.
    std::string Read(const std::string& bytes) {
        WriteFile(path, bytes);
        IDTags tags;
        const size_t seen = log.Text().size();
        if (!MatroskaTags::Read(S(path), tags, log.Target())) return "fail:" + log.Text().substr(seen);
        return Describe(tags);
    }

    TempDir dir;
    LogCapture log{dir};
    std::string path = dir.File("song.mka");
};
const std::string kTagsTitle = El(kTags, TagWith("", {Simple("TITLE", "Album")}));

// A SeekHead with a Void behind it, 40 bytes in all.
std::string PaddedSeekHead(const std::string& seeks) {
    return El(kSeekHead, seeks) + El(kVoid, std::string(38 - El(kSeekHead, seeks).size(), '\0'));
}

}  // namespace

TEST(Ebml, VarIntsBothWays) {
    const std::pair<uint64_t, const char*> cases[] = {{0, "80"}, {126, "FE"}, {127, "40 7F"}, {16383, "7F FF"}, {0x14D9B74, "11 4D 9B 74"},
                                                      {(uint64_t{1} << 56) - 1, "01 FF FF FF FF FF FF FF"}};
    for (const auto& [value, hex] : cases) EXPECT_EQ(Encoded(value), hex) << value;
    EXPECT_THROW(Encoded(uint64_t{1} << 56), EBML::ParseError);
    uint8_t out[8] = {};
    EXPECT_FALSE(EBML::EncodeVarIntFixed(200, out, 1));
    EXPECT_FALSE(EBML::EncodeVarIntFixed(127, out, 1));   // all ones: unknown
    EXPECT_FALSE(EBML::EncodeVarIntFixed(5, out, 0));
    EXPECT_EQ(SizeOf("\x7F\xFF"), 16383u);   // all ones in two bytes is a number
    EXPECT_EQ(SizeOf("\xFF"), EBML::kUnknownSize);
    EXPECT_EQ(SizeOf(std::string("\x01\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 8)), EBML::kUnknownSize);
}

TEST_F(MatroskaRead, StructureWalksAndFailures) {
    const std::string generic = "Couldn't parse Matroska tags: Corrupted file or unsupported format";
    const std::string seekHead = El(kSeekHead, Seek(kTags, 0));   // its own size doesn't depend on the position
    const struct { const char* what; std::string bytes, log; } cases[] = {
        {"wrong doc type", File(kTagsTitle, "Matroska"), "Couldn't parse Matroska tags: Unsupported document type: \"Matroska\""},
        {"seek past the segment", File(El(kSeekHead, Seek(kTags, 500)) + kTagsTitle), generic},
        {"seek at the segment's size", File(El(kSeekHead, Seek(kTags, seekHead.size() + 2)) + El(kVoid, "")), generic},
        {"seek entry to another element", File(El(kSeekHead, Seek(kTags, seekHead.size())) + kInfoElement), generic},
        {"no magic byte", std::string(100, 'x'), generic}, {"empty file", "", generic},
        {"doc read version 3", El(kHeader, El(kDocType, "webm") + UInt(0x285, 3)) + El(kSegment, kTagsTitle), generic},
        {"EBML read version 2", El(kHeader, El(kDocType, "webm") + UInt(0x2F7, 2)) + El(kSegment, kTagsTitle), generic},
        {"a control character in the doc type", File(kTagsTitle, "we\x01" "bm"), generic},
        {"a SimpleTag larger than the file", File(El(kTags, El(kTag, ElSized(kSimpleTag, VarInt(uint64_t{1} << 50), "")))), generic},
    };
    for (const auto& c : cases) EXPECT_EQ(Read(c.bytes), "fail:" + c.log + "  [MatroskaTags::Read]\r\n") << c.what;
    // Junk before the header is stepped over, and "webm" is a doc type too, of these versions.
    EXPECT_EQ(Read(std::string(100, 'j') + El(kHeader, El(kDocType, "webm") + UInt(0x285, 2) + UInt(0x2F7, 1)) + El(kSegment, kTagsTitle)), "ALBUM=Album;");
    // Walks the tools don't make (the round trip has the rest): Tags behind the
    // Clusters are found through the entry of a SeekHead that a first one names,
    // and the second pointing back at the first reads each once.
    const size_t secondAt = 40 + kInfoElement.size() + Cluster().size();
    const std::string second = PaddedSeekHead(Seek(kSeekHead, 0) + Seek(kTags, secondAt + 40));
    const std::string first = PaddedSeekHead(Seek(kSeekHead, secondAt) + Seek(kInfo, 40));
    EXPECT_EQ(Read(File(first + kInfoElement + Cluster() + second + kTagsTitle)), "ALBUM=Album;");
}

TEST_F(MatroskaRead, NamesLevelsAndTargets) {
    const std::string tags = El(kTags, TagWith("", {Simple("TITLE", "Alb")}) +
        TagWith(UInt(kTargetTypeValue, 30), {Simple("title", "T1"), Simple("ARTIST", "A1"), Simple("ARTIST", "A2"),
            Simple("PART_NUMBER", "3"), El(kSimpleTag, El(kTagName, "NOVALUE")), Simple("DATE_RECORDED", "2001"),
            Simple("MOOD", ""), Simple("MOOD", "m"), El(kCrc32, "abcd")}) +
        TagWith(UInt(kTargetTypeValue, 50), {Simple("ARTIST", "AA"), Simple("TOTAL_PARTS", "12")}) +
        TagWith(UInt(kTargetTypeValue, 40), {Simple("TITLE", "X")}) + TagWith(UInt(kTrackUid, 123), {Simple("TITLE", "hidden")}) +
        TagWith(UInt(kChapterUid, 0), {Simple("TITLE", "C0")}) + TagWith(UInt(kTargetTypeValue, 60), {Simple("TOTAL_PARTS", "2")}) +
        El(kVoid, "xx"));
    const std::string attachments =
        El(kAttachments, Attached("Cover.JPG", "image/jpeg", "jpegbytes") + Attached("notes.txt", "text/plain", "t") +
                             Attached("booklet 1.png", "image/png", "png") + Attached(".jpg", "image/jpeg", "") +
                             El(kVoid, "xx"));
    EXPECT_EQ(Read(File(kInfoElement + Cluster() + tags + attachments)),
              "track=3/12;ALBUM=Alb|X|C0;album artist=AA;ARTIST=A1|A2;date=2001;MOOD=m;TITLE=T1;"
              "_albumart_1_Front Album Cover=[9 bytes];_albumart_2_booklet 1=[3 bytes];_albumart_3_=;");
}
