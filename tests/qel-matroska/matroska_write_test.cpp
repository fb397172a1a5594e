// Encoding, in-place replacement, the three relayouts, deletion and the
// files that can't be tagged, over hand-built files. After every write the
// Clusters stand unchanged at their offsets and every Seek entry is true.

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskaencode.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "ebmlbytes.h"
#include "ebmlwalk.h"
#include "tags/picturenaming.h"
#include "tests/tags/tagfixture.h"

using namespace ebmltest;
using namespace tagtest;

namespace {

const std::string kTracksElement = El(kTracks, std::string(30, '\0'));

// Tags in the form the engine writes them.
std::string Tags(const std::string& title) {
    const std::string simple = El(kSimpleTag, El(kTagName, "TITLE") + El(kTagString, title) + El(kTagLanguage, "und") +
                                                  UInt(0x484, 1));
    return El(kTags, El(kTag, El(kTargets, UInt(kTargetTypeValue, 30)) + simple));
}
// A Void of `total` bytes, 2 to 16000.
std::string VoidOf(size_t total) {
    if (total < 129) return El(kVoid, std::string(total - 2, '\0'));
    const size_t size = total - 3;
    return "\xEC" + std::string{static_cast<char>(0x40 | size >> 8), static_cast<char>(size & 0xFF)} +
           std::string(size, '\0');
}
std::string TwoClusters() { return Cluster(100) + Cluster(50); }

// "KEY=NAME@LEVEL:VALUE,...;" of the Global map.
std::string DescribeRecord(const Matroska::TagRecord& record) {
    std::string out;
    for (const auto& [key, values] : record.Global) {
        out += key + "=";
        for (const Matroska::TagValue& v : values) out += v.name + "@" + std::to_string(v.level) + ":" + v.value + ",";
        out += ";";
    }
    return out;
}

std::string Names(const std::string& bytes) { return std::regex_replace(Layout(bytes), std::regex("@[0-9]+"), ""); }

class MatroskaWrite : public ::testing::Test {
protected:
    // Writes `tags` into a file of `bytes`; checks Clusters and Seek entries.
    bool Write(const std::string& bytes, const IDTags& tags) {
        WriteFile(path, bytes);
        const bool written = MatroskaTags::Write(S(path), tags, log.Target());
        Verify(bytes);
        return written;
    }
    bool Delete(const std::string& bytes, const char16_t* names) {
        WriteFile(path, bytes);
        const bool deleted = MatroskaTags::Delete(S(path), names, log.Target());
        Verify(bytes);
        return deleted;
    }
    void Verify(const std::string& before) {
        const std::string after = ReadFile(path);
        EXPECT_EQ(Clusters(after), Clusters(before));
        EXPECT_EQ(SeekProblems(after), "");
    }
    std::string ReadBack() {
        IDTags tags;
        if (!MatroskaTags::Read(S(path), tags, log.Target())) return "fail";
        return tagtest::Describe(tags);
    }

    TempDir dir;
    LogCapture log{dir};
    std::string path = dir.File("song.mka");
};

}  // namespace

TEST(MatroskaEncode, MergeRules) {
    const struct {
        std::vector<std::pair<const char*, const char*>> tags;
        bool changed;
        const char* record;
    } cases[] = {
        {{{"TITLE", "Old"}}, false, "TITLE=TITLE@30:Old,;TOTAL_TRACKS=TOTAL_PARTS@50:12,;TRACK_NUMBER=PART_NUMBER@30:9,;"},
        {{{"track", "3"}}, true, "TITLE=TITLE@30:Old,;TRACK_NUMBER=PART_NUMBER@30:3,;"},
        {{{"track", "3/12"}, {"disc", "1/2"}}, true,
         "DISC_NUMBER=PART_NUMBER@50:1,;TITLE=TITLE@30:Old,;TOTAL_DISCS=TOTAL_PARTS@60:2,;"
         "TOTAL_TRACKS=TOTAL_PARTS@50:12,;TRACK_NUMBER=PART_NUMBER@30:3,;"},
        {{{"track", "/12"}}, true, "TITLE=TITLE@30:Old,;TOTAL_TRACKS=TOTAL_PARTS@50:12,;TRACK_NUMBER=PART_NUMBER@30:,;"},
        {{{"Artist", "a\rb"}, {"Date", "2001"}, {"album artist", "Band"}, {"album", "Alb"}}, true,
         "ALBUM=TITLE@50:Alb,;ALBUM_ARTIST=ARTIST@50:Band,;ARTIST=ARTIST@30:a,ARTIST@30:b,;DATE_RECORDED=DATE_RECORDED@30:2001,;"
         "TITLE=TITLE@30:Old,;TOTAL_TRACKS=TOTAL_PARTS@50:12,;TRACK_NUMBER=PART_NUMBER@30:9,;"},
        {{{"_albumart_1_Front Album Cover", "x"}, {"title", ""}}, true,
         "TITLE=;TOTAL_TRACKS=TOTAL_PARTS@50:12,;TRACK_NUMBER=PART_NUMBER@30:9,;"},
    };
    for (const auto& c : cases) {
        Matroska::TagRecord record;
        record.Global["TITLE"] = {Matroska::MakeTagValue("TITLE", "Old")};
        record.Global["TITLE"][0].raw = {1, 2, 3};   // written back as it stood while unchanged
        record.Global["TRACK_NUMBER"] = {Matroska::MakeTagValue("TRACK_NUMBER", "9")};
        record.Global["TOTAL_TRACKS"] = {Matroska::MakeTagValue("TOTAL_TRACKS", "12")};
        IDTags tags;
        for (const auto& [name, value] : c.tags) tags.Add(S(name), S(value));
        EXPECT_EQ(Matroska::MergeIDTags(tags, record), c.changed) << c.record;
        EXPECT_EQ(DescribeRecord(record), c.record);
        if (!record.Global["TITLE"].empty() && record.Global["TITLE"][0].value == "Old") {
            EXPECT_EQ(record.Global["TITLE"][0].raw, (std::vector<uint8_t>{1, 2, 3}));
        }
    }
}

TEST(MatroskaEncode, RunsOfOneLevelShareATag) {
    Matroska::TagRecord record;
    for (const char* name : {"ALBUM", "ALBUM_ARTIST", "ARTIST", "TITLE", "TOTAL_TRACKS", "TRACK_NUMBER"}) {
        record.Global[name] = {Matroska::MakeTagValue(name, "v")};
    }
    record.Tracks[5]["TITLE"] = {Matroska::MakeTagValue("TITLE", "t")};
    const std::vector<uint8_t> body = Matroska::EncodeTagsBody(record);
    const std::string bytes(body.begin(), body.end());
    auto count = [&](const std::string& what) {
        size_t n = 0;
        for (size_t at = bytes.find(what); at != std::string::npos; at = bytes.find(what, at + 1)) ++n;
        return n;
    };
    EXPECT_EQ(count(VarInt(kTag)), 5u);   // 50, 30, 50, 30 and the track's
    EXPECT_EQ(count(UInt(kTrackUid, 5)), 1u);
    EXPECT_EQ(count(El(kTagLanguage, "und")), 7u);
}

TEST_F(MatroskaWrite, ThreeLayoutsOfTheRelayout) {
    const IDTags title = Tags({{"TITLE", std::string(60, 'n')}});
    const std::string tail = Tags("old") + kInfoElement;   // Tags not last: no room to grow in place
    const struct {
        size_t leading;
        const char* layout;
    } cases[] = {
        {10, "Void;Cluster;Cluster;Info;Tags;"},                                       // no room for a SeekHead
        {40, "SeekHead;Void;Cluster;Cluster;Info;SeekHead;Void;Tags;"},                // a small SeekHead only
        {200, "SeekHead;Void;Info;Void;Cluster;Cluster;Tags;"},                        // the normal case
        {50 + 12 + 8, "SeekHead;Void;Info;Void;Cluster;Cluster;Tags;"},                // avail just fits Info
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(Write(File(VoidOf(c.leading) + TwoClusters() + tail), title)) << log.Text();
        EXPECT_EQ(Names(ReadFile(path)), c.layout) << c.leading;
        EXPECT_EQ(ReadBack(), "TITLE=" + std::string(60, 'n') + ";") << c.leading;
        // A second write finds the Tags where the first put them.
        ASSERT_TRUE(Write(ReadFile(path), Tags({{"TITLE", "short"}})));
        EXPECT_EQ(ReadBack(), "TITLE=short;");
    }
}

TEST_F(MatroskaWrite, InPlaceReplacement) {
    const std::string oldTags = Tags("0123456789");
    // Same size, 2 bytes less (a Void of 2), 1 byte less (not in place).
    const struct {
        std::string title;
        const char* layout;
    } cases[] = {
        {"abcdefghij", "SeekHead;Void;Info;Tags;Cluster;Cluster;"},
        {"abcdefgh", "SeekHead;Void;Info;Tags;Void;Cluster;Cluster;"},
        {"abcdefghi", "SeekHead;Void;Info;Void;Cluster;Cluster;Tags;"},
    };
    for (const auto& c : cases) {
        const std::string head = El(kSeekHead, Seek(kInfo, 60) + Seek(kTags, 60 + kInfoElement.size()));
        const std::string file = File(head + VoidOf(60 - head.size()) + kInfoElement + oldTags + TwoClusters());
        ASSERT_TRUE(Write(file, Tags({{"TITLE", c.title}}))) << log.Text();
        EXPECT_EQ(Names(ReadFile(path)), c.layout) << c.title;
        EXPECT_EQ(ReadBack(), "TITLE=" + c.title + ";");
    }
    // Tags last in the Segment grow and shrink freely; a second Tags element
    // becomes a Void with its Seek entry.
    const std::string head = El(kSeekHead, Seek(kTags, 40) + Seek(kTags, 40 + oldTags.size() + TwoClusters().size()));
    const std::string file = File(head + VoidOf(40 - head.size()) + oldTags + TwoClusters() + Tags("second"));
    ASSERT_TRUE(Write(file, Tags({{"TITLE", std::string(300, 'g')}})));
    EXPECT_EQ(Names(ReadFile(path)), "SeekHead;Void;Void;Cluster;Cluster;Tags;");
    ASSERT_TRUE(Write(ReadFile(path), Tags({{"TITLE", "s"}})));
    EXPECT_EQ(ReadBack(), "TITLE=s;");
    EXPECT_LT(ReadFile(path).size(), file.size());
}

TEST_F(MatroskaWrite, UntaggableFilesStayAsTheyWere) {
    const std::string reason = "Couldn't update Matroska tags: File can't be retagged, please re-mux it with up-to-date "
                               "Matroska tools  [writeTagsInternal]\r\n";
    // An empty SeekHead stops a reader's walk, so the Tags behind the Cluster are never seen.
    const std::string hidden = El(kSeekHead, "") + Cluster() + Tags("x");
    // A picture whose FileData claims the Tags behind its Attachments as well.
    const std::string tail = Tags("y");
    const std::string reaching =
        El(kAttachments, El(kAttachedFile, El(kFileName, "c.png") + El(kFileMimeType, "image/png") +
                                               ElSized(kFileData, VarInt(4 + tail.size()), "\x89PNG"))) + tail;
    const struct {
        const char* what;
        std::string bytes;
    } cases[] = {
        {"metadata between Clusters", File(VoidOf(100) + Cluster() + kInfoElement + Cluster() + Tags("x") + kTracksElement)},
        {"no Cluster", File(kInfoElement + Tags("x") + kTracksElement)},
        {"tags hidden among the Clusters, no room for a SeekHead",
         Header() + ElSized(kSegment, std::string("\x01\0\0\0\0\0\0", 7) + static_cast<char>(hidden.size()), hidden)},
        {"a picture reaching into the Tags behind", File(VoidOf(100) + Cluster() + Tags("x") + reaching)},
    };
    for (const auto& c : cases) {
        const size_t seen = log.Text().size();
        EXPECT_FALSE(Write(c.bytes, Tags({{"TITLE", std::string(200, 'x')}}))) << c.what;
        EXPECT_EQ(ReadFile(path), c.bytes) << c.what;
        EXPECT_EQ(log.Text().substr(seen), reason) << c.what;
    }
}

TEST_F(MatroskaWrite, DeleteNamesPicturesAndAll) {
    const std::string png = "\x89PNG\r\n\x1A\n" + std::string("\0\0\0\x0DIHDR", 8) + std::string(17, '\0');
    const std::string tags = El(kTags, El(kTag, El(kTargets, UInt(kTargetTypeValue, 50)) + Simple("TITLE", "Alb") +
                                                    Simple("PART_NUMBER", "1") + Simple("TOTAL_PARTS", "2")) +
                                           El(kTag, El(kTargets, UInt(kTargetTypeValue, 30)) + Simple("TITLE", "T") +
                                                    Simple("DATE_RECORDED", "2001")) +
                                           El(kTag, El(kTargets, UInt(kTrackUid, 9)) + Simple("TITLE", "track")));
    const std::string attachments = El(kAttachments, Attached("font.ttf", "application/x-truetype-font", "font") +
                                                         Attached("Cover.png", "image/png", png) +
                                                         Attached("booklet 1.png", "image/png", png));
    const std::string file = File(VoidOf(300) + TwoClusters() + tags + attachments);
    // TOTAL_PARTS at level 50 counts tracks, and shows only beside a track number.
    const char* kAll = "disc=1;ALBUM=Alb;date=2001;TITLE=T;";
    const struct {
        std::u16string names;
        const char* tags;
        const char* attachments;   // file names left, in order
    } cases[] = {
        {std::u16string(u"ALBUM\0Date\0", 12), "disc=1;TITLE=T;", "font.ttf,Cover.png,booklet 1.png,"},
        {std::u16string(u"disc\0", 5), "ALBUM=Alb;date=2001;TITLE=T;", "font.ttf,Cover.png,booklet 1.png,"},
        {std::u16string(u"_albumart_1_Front Album Cover\0", 30), kAll, "font.ttf,booklet 1.png,"},
        {std::u16string(u"_albumart_3_booklet 1\0nothing\0", 30), kAll, "font.ttf,Cover.png,"},
        {std::u16string(), "", "font.ttf,"},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(Delete(file, c.names.empty() ? nullptr : c.names.c_str())) << log.Text();
        IDTags read;
        ASSERT_TRUE(MatroskaTags::Read(S(path), read, log.Target()));
        std::string text;
        for (int i = 0; i < read.Count(); ++i) {
            if (!IsArtKey(read[i].Name)) text += Utf8(read[i].Name) + "=" + Utf8(read[i].Value) + ";";
        }
        const std::string after = ReadFile(path);
        std::string names;
        for (size_t at = after.find(VarInt(kFileName)); at != std::string::npos; at = after.find(VarInt(kFileName), at + 1)) {
            names += after.substr(at + 3, static_cast<uint8_t>(after[at + 2]) & 0x7F) + ",";
        }
        EXPECT_EQ(names, c.attachments);
        EXPECT_EQ(text, c.tags);
        // Aimed at a track: kept.
        EXPECT_TRUE(!c.names.empty() || after.find(Simple("TITLE", "track")) != std::string::npos);
    }
    // Only a cover: Attachments go, and with them the end of the file.
    const std::string coverOnly = File(VoidOf(300) + TwoClusters() + El(kAttachments, Attached("cover.png", "image/png", png)));
    ASSERT_TRUE(Delete(coverOnly, nullptr));
    EXPECT_EQ(Names(ReadFile(path)), "Void;Cluster;Cluster;");
    // Nothing to delete: the file isn't touched.
    const std::string plain = File(VoidOf(300) + TwoClusters());
    ASSERT_TRUE(Delete(plain, nullptr));
    EXPECT_EQ(ReadFile(path), plain);
}
