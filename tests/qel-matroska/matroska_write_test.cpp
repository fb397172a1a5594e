// Relayouts, replacement, deletion and refusals over hand-built files; after
// every job the Clusters stand unchanged, and Seek entries and CRC-32s hold.

#include <gtest/gtest.h>

#include <string>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "ebmlbytes.h"
#include "ebmlwalk.h"
#include "tests/tags/tagfixture.h"

using namespace ebmltest;
using namespace tagtest;

namespace {

const std::string kTracksElement = El(kTracks, std::string(30, '\0'));

// Tags in the form the engine writes them.
std::string Tags(const std::string& title) {
    const std::string simple = El(kTagName, "TITLE") + El(kTagString, title) + El(kTagLanguage, "und") + UInt(0x484, 1);
    return El(kTags, El(kTag, El(kTargets, UInt(kTargetTypeValue, 30)) + El(kSimpleTag, simple)));
}
// A Void of `total` bytes, 2 to 128.
std::string VoidOf(size_t total) { return El(kVoid, std::string(total - 2, '\0')); }

class MatroskaWrite : public ::testing::Test {
protected:
    // Writes `tags` (deletes all when null) into a file of `bytes`, and checks
    // Clusters, and after a success Seek entries and CRC-32s.
    bool Write(const std::string& bytes, const IDTags* tags) {
        WriteFile(path, bytes);
        const bool written = tags ? MatroskaTags::Write(S(path), *tags, log.Target())
                                  : MatroskaTags::Delete(S(path), nullptr, log.Target());
        const std::string after = ReadFile(path);
        EXPECT_EQ(Clusters(after), Clusters(bytes));
        EXPECT_EQ(written ? SeekProblems(after) + CrcProblems(after) : "", "");
        return written;
    }
    bool Write(const std::string& bytes, const IDTags& tags) { return Write(bytes, &tags); }
    std::string ReadBack() {
        IDTags tags;
        return MatroskaTags::Read(S(path), tags, log.Target()) ? tagtest::Describe(tags) : "fail";
    }

    TempDir dir;
    LogCapture log{dir};
    std::string path = dir.File("song.mka");
};

}  // namespace

TEST_F(MatroskaWrite, ThreeLayoutsOfTheRelayout) {
    const IDTags title = Tags({{"TITLE", std::string(60, 'n')}});
    const std::string tail = Tags("old") + kInfoElement;   // Tags not last: no room to grow in place
    const std::pair<size_t, const char*> cases[] = {
        {10, "Void;Cluster;Cluster;Info;Tags;"},                                       // no room for a SeekHead
        {40, "SeekHead;Void;Cluster;Cluster;Info;SeekHead;Void;Tags;"},                // a small SeekHead only
        {50 + 12 + 8, "SeekHead;Void;Info;Void;Cluster;Cluster;Tags;"},                // avail just fits Info
    };
    for (const auto& [leading, layout] : cases) {
        ASSERT_TRUE(Write(File(VoidOf(leading) + Cluster(100) + Cluster(50) + tail), title)) << log.Text();
        EXPECT_EQ(Layout(ReadFile(path)), layout) << leading;
        EXPECT_EQ(ReadBack(), "TITLE=" + std::string(60, 'n') + ";") << leading;
    }
}

// Size fields and checksums the engine must not trust or keep: a Void behind
// the Tags whose size claims the Info behind it is not written over, and a
// SeekHead whose entry goes with a removed element loses its CRC-32.
TEST_F(MatroskaWrite, LyingSizesAndStaleChecksums) {
    const std::string tags = Tags("old"), lying = ElSized(kVoid, VarInt(4 + kInfoElement.size()), std::string(4, '\0'));
    const size_t at = 60 + Cluster().size();
    const std::string head = El(kSeekHead, Seek(kTags, at) + Seek(kInfo, at + tags.size() + lying.size()));
    const std::string claimed = File(head + VoidOf(60 - head.size()) + Cluster() + tags + lying + kInfoElement);
    const bool written = Write(claimed, Tags({{"TITLE", "new"}}));
    EXPECT_TRUE(written ? ReadFile(path).find(kInfoElement) != std::string::npos : ReadFile(path) == claimed)
        << written << log.Text() << Layout(ReadFile(path));

    const std::string attachments = El(kAttachments, Attached("c.png", "image/png", "\x89PNG"));
    const std::string seeks = Seek(kInfo, 60) + Seek(kAttachments, 60 + kInfoElement.size() + Cluster().size());
    std::string crc(4, '\0');
    for (int i = 0; i < 4; ++i) crc[i] = static_cast<char>(Crc32(seeks, 0, seeks.size()) >> (8 * i));
    const std::string checked = El(kSeekHead, El(kCrc32, crc) + seeks);
    ASSERT_EQ(CrcProblems(File(checked)), "");
    ASSERT_TRUE(Write(File(checked + VoidOf(60 - checked.size()) + kInfoElement + Cluster() + attachments), nullptr));
    EXPECT_EQ(ReadBack(), "");
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
    const struct { const char* what; std::string bytes; } cases[] = {
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
