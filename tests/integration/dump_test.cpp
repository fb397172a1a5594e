// What Open learns from the worker's dump of its input: duration, bitrate,
// the input's metadata as the tag blob, one "Encoder" per audio stream.

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "plugindriver.h"
#include "support/textcodec.h"
#include "tags/idtags.h"
#include "testkit.h"

namespace {

struct Entry {
    std::string name;
    std::string value;
    bool operator==(const Entry&) const = default;
};

std::vector<Entry> Entries(const void* blob, uint32_t size) {
    IDTags tags;
    tags.Parse(blob, size);
    std::vector<Entry> entries;
    for (int i = 0; i < tags.Count(); ++i) entries.push_back({tags[i].Name.ToUtf8(), tags[i].Value.ToUtf8()});
    return entries;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

// What ffprobe says of the container, an independent reading of the file.
std::string Probe(const std::string& entries, const std::string& path) {
    const it::RunResult run = it::Run({"/usr/bin/ffprobe", "-v", "error", "-show_entries", entries, "-of",
                                       "default=noprint_wrappers=1:nokey=1", path});
    return run.out;
}

std::string ProbeAudioCodecs(const std::string& path) {
    const it::RunResult run = it::Run({"/usr/bin/ffprobe", "-v", "error", "-select_streams", "a", "-show_entries",
                                       "stream=codec_name", "-of", "default=noprint_wrappers=1:nokey=1", path});
    return run.out;
}

// Tags with a two-line comment, a value holding ":" and an empty value, in a
// format whose tags only the worker reads.
std::string MakeTaggedMp3(const it::TempDir& dir) {
    const std::string meta = dir.File("meta.txt");
    it::WriteFile(meta,
                  ";FFMETADATA1\n"
                  "title=A title\n"
                  "comment=first line\\\nsecond line\n"
                  "artist=Someone: with a colon\n"
                  "empty=\n");
    const std::string path = dir.File("tagged.mp3");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1.5", "-i", meta, "-map_metadata", "1", "-c:a", "libmp3lame",
                path});
    return path;
}

TEST(Dump, MetadataBecomesTheTagBlob) {
    it::TempDir dir;
    const std::string path = MakeTaggedMp3(dir);
    it::TestDecoder decoder;
    DecoderOpenInfo info{};
    ASSERT_TRUE(decoder.Open(path, kOpenWantTags | kOpenWantInfo, &info)) << decoder.ErrorLog();
    const std::vector<Entry> tags = Entries(info.tags, info.tagsSize);

    const std::vector<Entry> expected = {
        {"title", "A title"},
        {"comment", "first line\nsecond line"},
        {"artist", "Someone: with a colon"},
    };
    ASSERT_GE(tags.size(), expected.size());
    EXPECT_EQ(std::vector<Entry>(tags.begin(), tags.begin() + 3), expected);
    for (const Entry& tag : tags) {
        EXPECT_NE(tag.name, "empty") << "a tag with an empty value is dropped";
        EXPECT_FALSE(tag.value.empty()) << tag.name;
    }
    EXPECT_EQ(Entries(info.info, info.infoSize), (std::vector<Entry>{{"Encoder", "mp3"}}));
    EXPECT_EQ(decoder.ErrorLog(), "");
}

// The dump gives hundredths of seconds and whole kb/s.
TEST(Dump, DurationAndBitrateMatchTheContainer) {
    it::TempDir dir;
    const std::string flac = dir.File("tone.flac");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=2.37", flac});
    const std::string mp3 = MakeTaggedMp3(dir);
    for (const std::string& path : {flac, mp3}) {
        SCOPED_TRACE(path);
        const std::vector<std::string> probe = Lines(Probe("format=duration,bit_rate", path));
        ASSERT_EQ(probe.size(), 2u);
        const double seconds = std::stod(probe[0]);
        const long long bitrate = std::stoll(probe[1]);

        it::TestDecoder decoder;
        DecoderOpenInfo info{};
        ASSERT_TRUE(decoder.Open(path, kOpenWantInfo, &info));
        // Milliseconds from hundredths in floating point may land one below.
        EXPECT_NEAR(static_cast<double>(info.format.durationMs), std::llround(seconds * 100) * 10.0, 1.0);
        const uint32_t reported = info.format.bitrate;   // a copy: the record is packed
        EXPECT_EQ(reported, bitrate / 1000 * 1000);
        EXPECT_GT(reported, 0u);
    }
}

TEST(Dump, OneEncoderPerAudioStream) {
    it::TempDir dir;
    const std::string two = dir.File("two.mka");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1", "-f", "lavfi", "-i", "sine=duration=1:frequency=880", "-map",
                "0", "-map", "1", "-c:a:0", "ac3", "-c:a:1", "flac", two});
    const std::string cover = dir.File("cover.png");
    it::Ffmpeg({"-f", "lavfi", "-i", "color=c=red:s=32x32", "-frames:v", "1", cover});
    const std::string withCover = dir.File("cover.flac");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1", "-i", cover, "-map", "0", "-map", "1", "-c:a", "flac", "-c:v",
                "copy", "-disposition:v", "attached_pic", withCover});

    for (const std::string& path : {two, withCover}) {
        SCOPED_TRACE(path);
        std::vector<Entry> expected;
        for (const std::string& codec : Lines(ProbeAudioCodecs(path))) expected.push_back({"Encoder", codec});
        ASSERT_FALSE(expected.empty());
        it::TestDecoder decoder;
        DecoderOpenInfo info{};
        ASSERT_TRUE(decoder.Open(path, kOpenWantInfo, &info));
        EXPECT_EQ(Entries(info.info, info.infoSize), expected);
    }
}

// fdhost shows exactly the blobs that the plug-in hands out.
TEST(Dump, FdhostJsonShowsTheBlobs) {
    it::TempDir dir;
    const std::string path = MakeTaggedMp3(dir);
    const it::RunResult run = it::Fdhost({"info", "--json", path});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const std::string json = dir.File("info.json");
    it::WriteFile(json, run.out);
    const it::RunResult flat = it::Run({"/usr/bin/python3", "-c",
                                        "import json,sys\n"
                                        "d=json.load(open(sys.argv[1]))\n"
                                        "f=d['format']\n"
                                        "print(f['channels'], f['sample_rate'], f['duration_ms'], f['bitrate'])\n"
                                        "for e in d['tags']+d['info']:\n"
                                        "  assert e['data_size']==0 and e['data_sha256'] is None\n"
                                        "  print(json.dumps([e['name'], e['value']]))\n",
                                        json});
    ASSERT_EQ(flat.exitCode, 0) << flat.err;

    it::TestDecoder decoder;
    DecoderOpenInfo info{};
    ASSERT_TRUE(decoder.Open(path, kOpenWantTags | kOpenWantInfo, &info));
    std::ostringstream expected;
    expected << it::U16At(it::FormatHead(info.format), 2) << ' ' << it::U32At(it::FormatHead(info.format), 4) << ' '
             << info.format.durationMs << ' ' << info.format.bitrate << '\n';
    std::vector<Entry> entries = Entries(info.tags, info.tagsSize);
    for (const Entry& entry : Entries(info.info, info.infoSize)) entries.push_back(entry);
    for (const Entry& entry : entries) {
        std::string value;
        for (char c : entry.value) value += c == '\n' ? std::string("\\n") : std::string(1, c);
        expected << "[\"" << entry.name << "\", \"" << value << "\"]\n";
    }
    EXPECT_EQ(flat.out, expected.str());

    const it::RunResult tagsOnly = it::Fdhost({"tags", "--json", path});
    ASSERT_EQ(tagsOnly.exitCode, 0);
    EXPECT_EQ(tagsOnly.out.front(), '[');
}

}  // namespace
