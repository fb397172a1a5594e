// Matroska files made by ffmpeg and mkvmerge, retagged and stripped by the
// engine: mkvinfo parses them without complaint, every Seek entry is true,
// the Clusters stand unchanged, ffmpeg decodes the same audio, and
// mkvextract / mkvmerge show the tags and attachments we meant. A write cut
// off after each of its writes leaves the audio as it was.

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskaencode.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskawrite.h"
#include "tests/qel-matroska/ebmlwalk.h"
#include "tests/tags/tagfixture.h"

using namespace tagtest;

namespace {

// A file stream whose write number `failAt` (from 0) fails as a full disk would.
class FailingStream : public streamImpl {
public:
    FailingStream(const clString& path, int failAt) : streamImpl(path), failAt_(failAt) {}
    void WriteHere(const void* data, uint64_t size) override {
        Count();
        streamImpl::WriteHere(data, size);
    }
    void SetSize(uint64_t size) override {
        Count();
        streamImpl::SetSize(size);
    }
    int writes = 0;

private:
    void Count() {
        if (writes++ == failAt_) throw EBML::ParseError();
    }
    int failAt_;
};

class MatroskaToolsWrite : public ::testing::Test {
protected:
    void SetUp() override {
        it::Ffmpeg({"-f", "lavfi", "-i", "sine=d=4", "-c:a", "libvorbis", "-metadata", "title=Old", "-metadata",
                    "artist=Someone", fromFfmpeg});
        it::Ffmpeg({"-f", "lavfi", "-i", "nullsrc=s=160x120,geq=random(1)*255:128:128", "-frames:v", "1", cover});
        WriteFile(dir.File("font.ttf"), "a font");
        it::RunResult merged = it::Run({"/usr/bin/mkvmerge", "-q", "-o", fromMkvmerge, "--attachment-mime-type",
                                        "application/x-truetype-font", "--attach-file", dir.File("font.ttf"),
                                        fromFfmpeg});
        ASSERT_LE(merged.exitCode, 1) << merged.out;
    }
    std::string Audio(const std::string& file) {
        return it::Run({FD_FFMPEG_PATH, "-v", "error", "-i", file, "-f", "s16le", "-"}).out;
    }
    // What mkvinfo says: "clean", or its first complaint.
    std::string MkvinfoVerdict(const std::string& file) {
        const it::RunResult info = it::Run({"/usr/bin/mkvinfo", file});
        for (const std::string& text : {info.out, info.err}) {
            for (const char* word : {"Error", "error", "Warning", "warning"}) {
                const size_t at = text.find(word);
                if (at != std::string::npos) return text.substr(text.rfind('\n', at) + 1, 120);
            }
        }
        return info.exitCode == 0 ? "clean" : "exit " + std::to_string(info.exitCode);
    }
    // The checks every write and delete must pass; returns the tags XML.
    std::string Verify(const std::string& file, const std::string& before, const std::string& audio) {
        const std::string after = ReadFile(file);
        EXPECT_EQ(MkvinfoVerdict(file), "clean");
        EXPECT_EQ(ebmltest::SeekProblems(after), "");
        EXPECT_EQ(ebmltest::Clusters(after), ebmltest::Clusters(before));
        EXPECT_TRUE(Audio(file) == audio) << "the decoded audio changed";
        const std::string xml = dir.File("tags.xml");
        std::remove(xml.c_str());
        it::Run({"/usr/bin/mkvextract", file, "tags", xml});
        return std::ifstream(xml).good() ? ReadFile(xml) : "";
    }
    std::string Attachments(const std::string& file) {
        std::string json = it::Run({"/usr/bin/mkvmerge", "-J", file}).out;
        json = json.substr(0, json.find("\"chapters\""));   // the attachments list comes first
        std::string names;
        for (size_t at = json.find("\"file_name\": \""); at != std::string::npos; at = json.find("\"file_name\": \"", at + 1)) {
            const size_t start = at + 14;
            names += json.substr(start, json.find('"', start) - start) + ",";
        }
        return names;
    }
    int Fdhost(const std::vector<std::string>& args) { return it::Fdhost(args).exitCode; }

    TempDir dir;
    LogCapture log{dir};
    std::string fromFfmpeg = dir.File("ffmpeg.mka"), fromMkvmerge = dir.File("mkvmerge.mka");
    std::string cover = dir.File("cover.png");
};

}  // namespace

TEST_F(MatroskaToolsWrite, RetagGrowShrinkAndDelete) {
    for (const std::string& file : {fromFfmpeg, fromMkvmerge}) {
        const std::string original = ReadFile(file), audio = Audio(file);
        // Growing: a cover and a long title; then shrinking.
        ASSERT_EQ(Fdhost({"write", file, "--set", "title=" + std::string(500, 't'), "--set", "genre=Jazz",
                          "--picture", "3=" + cover}), 0) << file;
        std::string xml = Verify(file, original, audio);
        EXPECT_NE(xml.find(std::string(500, 't')), std::string::npos) << file;
        EXPECT_NE(xml.find("<String>Jazz</String>"), std::string::npos);
        EXPECT_EQ(Attachments(file), file == fromFfmpeg ? "cover.png," : "cover.png,font.ttf,");
        IDTags read;
        ASSERT_TRUE(MatroskaTags::Read(S(file), read, log.Target()));
        const IDTag* picture = read.Find(S("_albumart_1_Front Album Cover"), false);
        ASSERT_NE(picture, nullptr);
        EXPECT_EQ(DataOf(*picture), ReadFile(cover));

        ASSERT_EQ(Fdhost({"write", file, "--set", "title=Short"}), 0);
        xml = Verify(file, original, audio);
        EXPECT_NE(xml.find("<String>Short</String>"), std::string::npos);
        EXPECT_EQ(xml.find(std::string(500, 't')), std::string::npos);

        // Delete one name, then the picture by its key, then all.
        ASSERT_EQ(Fdhost({"delete", file, "genre"}), 0);
        xml = Verify(file, original, audio);
        EXPECT_EQ(xml.find("Jazz"), std::string::npos);
        EXPECT_NE(xml.find("Short"), std::string::npos);
        ASSERT_EQ(Fdhost({"delete", file, "_albumart_1_Front Album Cover"}), 0);
        Verify(file, original, audio);
        EXPECT_EQ(Attachments(file), file == fromFfmpeg ? "" : "font.ttf,");
        ASSERT_EQ(Fdhost({"write", file, "--picture", "4=" + cover}), 0);
        ASSERT_EQ(Fdhost({"delete", file}), 0);
        xml = Verify(file, original, audio);
        EXPECT_EQ(xml.find("Short"), std::string::npos);
        EXPECT_EQ(Attachments(file), file == fromFfmpeg ? "" : "font.ttf,");
    }
}

TEST_F(MatroskaToolsWrite, InterruptedWritesKeepTheAudio) {
    IDTags tags;
    tags.Add(S("TITLE"), S(std::string(400, 'n')));
    const std::string image = ReadFile(cover);
    tags.AddBinary(S("_albumart_1_Front Album Cover"), image.data(), static_cast<uint32_t>(image.size()));
    const Matroska::TagEditor tagEditor = [&](Matroska::TagRecord& r) { return Matroska::MergeIDTags(tags, r); };
    const Matroska::AttachmentEditor artEditor = [&](EBML::Chain& c) { return Matroska::MergeArt(tags, c); };

    const std::string original = ReadFile(fromFfmpeg), audio = Audio(fromFfmpeg);
    const std::string copy = dir.File("copy.mka");
    WriteFile(copy, original);
    FailingStream counting(S(copy), -1);
    ASSERT_TRUE(counting.Open(clFile::kReadWrite));
    ASSERT_TRUE(writeTagsInternal(counting, tagEditor, artEditor, log.Target())) << log.Text();
    ASSERT_GE(counting.writes, 2);
    for (int k = 0; k < counting.writes; ++k) {
        WriteFile(copy, original);
        FailingStream failing(S(copy), k);
        ASSERT_TRUE(failing.Open(clFile::kReadWrite));
        EXPECT_FALSE(writeTagsInternal(failing, tagEditor, artEditor, log.Target()));
        const std::string after = ReadFile(copy);
        EXPECT_EQ(ebmltest::Clusters(after), ebmltest::Clusters(original)) << k;
        EXPECT_TRUE(Audio(copy) == audio) << "audio changed when cut after " << k << " writes";
    }
}
