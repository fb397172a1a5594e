// What Open learns from the worker's dump: duration, bitrate, the metadata as
// the tag blob, one "Encoder" per audio stream.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>

#include "plugindriver.h"
#include "tags/idtags.h"

namespace {

using Entries = std::vector<std::pair<std::string, std::string>>;

Entries Parse(const void* blob, uint32_t size) {
    IDTags tags;
    tags.Parse(blob, size);
    Entries entries;
    for (int i = 0; i < tags.Count(); ++i) entries.emplace_back(tags[i].Name.ToUtf8(), tags[i].Value.ToUtf8());
    return entries;
}

// ffprobe's reading of the file, one value a line: an independent opinion.
std::vector<std::string> Probe(const std::string& path, const std::vector<std::string>& what) {
    std::vector<std::string> argv = {"/usr/bin/ffprobe", "-v", "error"};
    argv.insert(argv.end(), what.begin(), what.end());
    argv.insert(argv.end(), {"-of", "default=noprint_wrappers=1:nokey=1", path});
    std::istringstream in(it::Run(argv).out);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

// A two-line comment, a value holding ":" and an empty value, in a format
// whose tags only the worker reads.
std::string MakeTaggedMp3(const it::TempDir& dir) {
    it::WriteFile(dir.File("meta.txt"),
                  ";FFMETADATA1\ntitle=A title\ncomment=first line\\\nsecond line\n"
                  "artist=Someone: with a colon\nempty=\n");
    const std::string path = dir.File("tagged.mp3");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1.5", "-i", dir.File("meta.txt"), "-map_metadata", "1", "-c:a",
                "libmp3lame", path});
    return path;
}

TEST(Dump, MetadataBecomesTheTagBlob) {
    it::TempDir dir;
    const std::string path = MakeTaggedMp3(dir);
    it::TestDecoder decoder;
    DecoderOpenInfo info{};
    ASSERT_TRUE(decoder.Open(path, kOpenWantTags | kOpenWantInfo, &info)) << decoder.ErrorLog();
    const Entries tags = Parse(info.tags, info.tagsSize);
    const Entries expected = {
        {"title", "A title"}, {"comment", "first line\nsecond line"}, {"artist", "Someone: with a colon"}};
    ASSERT_GE(tags.size(), expected.size());
    EXPECT_EQ(Entries(tags.begin(), tags.begin() + 3), expected);
    for (const auto& [name, value] : tags) {
        EXPECT_NE(name, "empty") << "a tag with an empty value is dropped";
        EXPECT_FALSE(value.empty()) << name;
    }
    const Entries encoders = Parse(info.info, info.infoSize);
    EXPECT_EQ(encoders, (Entries{{"Encoder", "mp3"}}));
    EXPECT_EQ(decoder.ErrorLog(), "");
}

// The dump gives hundredths of seconds and whole kb/s.
TEST(Dump, DurationAndBitrateMatchTheContainer) {
    it::TempDir dir;
    const std::string flac = dir.File("tone.flac");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=2.37", flac});
    for (const std::string& path : {flac, MakeTaggedMp3(dir)}) {
        SCOPED_TRACE(path);
        const std::vector<std::string> probe = Probe(path, {"-show_entries", "format=duration,bit_rate"});
        ASSERT_EQ(probe.size(), 2u);
        it::TestDecoder decoder;
        DecoderOpenInfo info{};
        ASSERT_TRUE(decoder.Open(path, kOpenWantInfo, &info));
        // Milliseconds from hundredths in floating point may land one below.
        EXPECT_NEAR(static_cast<double>(info.format.durationMs), std::llround(std::stod(probe[0]) * 100) * 10.0, 1.0);
        const uint32_t bitrate = info.format.bitrate;   // a copy: the record is packed
        EXPECT_EQ(bitrate, std::stoll(probe[1]) / 1000 * 1000);
        EXPECT_GT(bitrate, 0u);
    }
}

TEST(Dump, OneEncoderPerAudioStreamNoneForTheCover) {
    it::TempDir dir;
    const std::string two = dir.File("two.mka");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1", "-f", "lavfi", "-i", "sine=duration=1:frequency=880", "-map",
                "0", "-map", "1", "-c:a:0", "ac3", "-c:a:1", "flac", "-metadata", "title=Two", two});
    // Cut short, the Matroska engine can't read it, ffprobe can; as a URL, no engine reads it.
    const std::string truncated = dir.File("truncated.mka");
    it::WriteFile(truncated, it::ReadFile(two).substr(0, 20000));
    it::Ffmpeg({"-f", "lavfi", "-i", "color=c=red:s=32x32", "-frames:v", "1", dir.File("cover.png")});
    const std::string withCover = dir.File("cover.flac");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1", "-i", dir.File("cover.png"), "-map", "0", "-map", "1", "-c:a",
                "flac", "-c:v", "copy", "-disposition:v", "attached_pic", withCover});
    for (const std::string& path : {two, withCover, truncated, "file://" + two}) {
        SCOPED_TRACE(path);
        Entries expected;
        for (const std::string& codec : Probe(path, {"-select_streams", "a", "-show_entries", "stream=codec_name"})) {
            expected.emplace_back("Encoder", codec);
        }
        EXPECT_EQ(expected.size(), path == withCover ? 1u : 2u);
        it::TestDecoder decoder;
        DecoderOpenInfo info{};
        ASSERT_TRUE(decoder.Open(path, kOpenWantTags | kOpenWantInfo, &info)) << decoder.ErrorLog();
        EXPECT_EQ(Parse(info.info, info.infoSize), expected);
        // Without the engine, the worker's metadata: the title that ffmpeg put in the segment's info.
        const bool worker = path != withCover && path != two;
        EXPECT_EQ(std::ranges::count(Parse(info.tags, info.tagsSize), Entries::value_type("title", "Two")), worker);
        EXPECT_EQ(decoder.ErrorLog(), path != truncated ? "" : "Couldn't parse Matroska tags: Corrupted file or "
                  "unsupported format. The tags shown are the metadata that FFmpeg read.  [clDecoder_ffmpeg::Open]\r\n");
    }
}

}  // namespace
