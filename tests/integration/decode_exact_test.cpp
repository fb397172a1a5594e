// The plug-in and fdhost give what ffmpeg and ffprobe give: samples and format from the start and after SetPosition,
// block positions, fdhost's WAV, and from the dump the duration, bitrate, one "Encoder" per audio stream and the tags.
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include "codecs/decoders/ffmpeg/decoder.h"
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

// The host's view of a format: the wave record's first 16 bytes, or all 40 for the extensible form.
std::string FormatHead(const DecoderFormat& format) {
    const auto* wave = reinterpret_cast<const char*>(format.wave);
    return std::string(wave, static_cast<uint8_t>(wave[0]) == 0xFE && static_cast<uint8_t>(wave[1]) == 0xFF ? 40 : 16);
}
// Milliseconds since the start of the worker plus the frame position of the
// last SetPosition: the sum of unlike units is what a host has always got.
void ExpectPositions(const std::vector<DecoderBlockInfo>& blocks, uint64_t start) {
    ASSERT_FALSE(blocks.empty());
    const std::string format = FormatHead(blocks[0].format);
    uint64_t dataRead = 0;
    for (size_t i = 0; i < blocks.size(); ++i) {
        // The records are packed: their fields are copied, never bound.
        const uint64_t position = blocks[i].position, bytes = blocks[i].bytes;
        const bool last = i + 1 == blocks.size();
        EXPECT_EQ(position, dataRead * 1000 / it::U32At(format, 8) + start) << i;
        EXPECT_EQ(blocks[i].endOfStream, last ? 1 : 0) << i;
        EXPECT_TRUE(last || bytes == it::U16At(format, 12) * 4096u) << "only the last block is short: " << i;
        dataRead += bytes;
    }
}

// Against ffprobe's reading: its audio streams' codec names (a stream in a program is listed once more, under it), the
// format's duration and bitrate ("N/A": none).
void ExpectDump(const std::string& path, const DecoderOpenInfo& info, const Entries& tags) {
    std::istringstream probe(it::Run({"/usr/bin/ffprobe", "-v", "error", "-select_streams", "a", "-show_entries",
                                      "stream=codec_name:format=duration,bit_rate", "-of", "csv", path}).out);
    std::vector<std::string> codecs, encoders;
    double seconds = 0, bitsPerSecond = 0;
    for (std::string line; std::getline(probe, line);) {
        if (line.starts_with("stream,")) codecs.push_back(line.substr(7));
        if (line.starts_with("format,")) std::sscanf(line.c_str(), "format,%lf,%lf", &seconds, &bitsPerSecond);
    }
    for (const auto& [name, value] : Parse(info.info, info.infoSize))
        if (name == "Encoder") encoders.push_back(value.substr(0, value.find(' ')));   // "dts (DTS)": the name
    EXPECT_EQ(encoders, codecs);
    // The dump gives hundredths of seconds, which in floating point may land a millisecond low, and whole kb/s.
    EXPECT_NEAR(static_cast<double>(info.format.durationMs), std::llround(seconds * 100) * 10.0, 1.0);
    EXPECT_EQ(static_cast<double>(info.format.bitrate), std::floor(bitsPerSecond / 1000) * 1000);
    const Entries blob = Parse(info.tags, info.tagsSize);
    EXPECT_EQ(Entries(blob.begin(), blob.begin() + std::min(blob.size(), tags.size())), tags);
    for (const auto& [name, value] : blob) EXPECT_FALSE(value.empty()) << name << ": an empty value is dropped";
    // The worker's title, where no tag engine reads the file (or can't).
    const Entries::value_type title("title", "Two");
    EXPECT_EQ(std::ranges::count(blob, title), std::ranges::count(tags, title));
}

// All of the above for `path`; fdhost writes its WAV to a file or, where it can't seek and the sizes stay "unknown", to
// a pipe. The tag blob starts with `tags`; the error log is `log`.
void ExpectAsFfmpegReadsIt(const it::TempDir& dir, const std::string& path, bool toPipe, const Entries& tags = {},
                           const std::string& log = "") {
    const it::Wave64 reference = it::ReferenceDecode(path);
    ASSERT_FALSE(reference.data.empty());
    const std::string wav = dir.File("out.wav");
    const it::RunResult run =
        toPipe ? it::Run({"/bin/sh", "-c", "\"$0\" decode --quiet \"$1\" -o - | cat >\"$2\"", FD_HOST_PATH, path, wav})
               : it::Fdhost({"decode", "--quiet", "-y", path, "-o", wav});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const std::string bytes = it::ReadFile(wav);
    ASSERT_GT(bytes.size(), 8u);
    EXPECT_EQ(it::U32At(bytes, 4), toPipe ? 0xFFFFFFFFu : bytes.size() - 8);
    const it::Wave64 back = it::ReferenceDecode(wav);
    EXPECT_EQ(back.format, reference.format);
    EXPECT_TRUE(back.data == reference.data) << "fdhost's WAV holds other samples";
    it::TestDecoder decoder;
    DecoderOpenInfo info{};
    ASSERT_TRUE(decoder.Open(path, kOpenWantTags | kOpenWantInfo, &info)) << decoder.ErrorLog();
    const std::string head = FormatHead(info.format);
    EXPECT_EQ(head, reference.format.substr(0, head.size()));
    ExpectDump(path, info, tags);
    const int64_t rate = it::U32At(head, 4);
    // As opened (-1), a fraction of a second, behind the end, and back to the start.
    for (const int64_t position : {int64_t{-1}, rate / 3 + 7, rate * 5, int64_t{0}}) {
        SCOPED_TRACE("at " + std::to_string(position));
        ASSERT_TRUE(position < 0 || decoder.SetPosition(position)) << decoder.ErrorLog();
        std::string samples;
        std::vector<DecoderBlockInfo> blocks;
        ASSERT_TRUE(decoder.ReadToEnd(samples, &blocks));
        const std::string start = clDecoder_ffmpeg::SecondsText(static_cast<double>(position) / rate);
        EXPECT_TRUE(samples == (position > 0 ? it::ReferenceDecode(path, start).data : reference.data))
            << "sample bytes differ";
        ExpectPositions(blocks, static_cast<uint64_t>(std::max<int64_t>(position, 0)));
    }
    EXPECT_EQ(decoder.ErrorLog(), log);
}
// `encode`: ffmpeg's arguments between the source and the file.
struct Fixture { const char* file; std::vector<std::string> encode; int sampleRate, channels; };

const Fixture kFixtures[] = {
    {"tone.ac3", {"-c:a", "ac3"}, 48000, 2},
    {"tone.eac3", {"-c:a", "eac3"}, 48000, 2},
    {"mono-u8.mka", {"-c:a", "pcm_u8"}, 44100, 1},
    {"s24.mka", {"-c:a", "pcm_s24le"}, 96000, 2},
    {"float.mka", {"-c:a", "pcm_f32le"}, 48000, 2},
    {"surround.mka", {"-af", "pan=5.1|c0=c0|c1=0.5*c0|c2=0.3*c0|c3=0.1*c0|c4=0.7*c0|c5=0.2*c0", "-c:a", "pcm_s16le"}, 48000, 6},
    {"tone.weba", {"-c:a", "libopus", "-f", "webm"}, 48000, 2},
    {"tone.dts", {"-c:a", "dca", "-strict", "-2"}, 48000, 2},
    {"tone.tta", {"-c:a", "tta"}, 44100, 2},
    {"tone.mlp", {"-c:a", "mlp", "-strict", "-2"}, 48000, 2},
    {"tone.ts", {"-c:a", "mp2"}, 48000, 2},
    {"tone.ra", {"-c:a", "real_144"}, 8000, 1},
    {"tone.rm", {"-c:a", "real_144"}, 8000, 1},
    {"mono-u8.voc", {"-c:a", "pcm_u8"}, 22050, 1},
    {"tone.au", {"-c:a", "pcm_s16be"}, 44100, 2},
    {"tone.snd", {"-c:a", "pcm_s16be", "-f", "au"}, 44100, 2},
};

// One second of tone; 5.1 gets a different level on every channel so that a channel swap shows.
TEST(DecodeExact, EveryWritableExtensionAsFfmpegReadsIt) {
    it::TempDir dir;
    for (size_t i = 0; i < std::size(kFixtures); ++i) {
        const Fixture& fixture = kFixtures[i];
        SCOPED_TRACE(fixture.file);
        std::vector<std::string> args = {"-f", "lavfi", "-i", "sine=duration=1:sample_rate=" + std::to_string(fixture.sampleRate),
                                         "-ac", std::to_string(fixture.channels)};
        args.insert(args.end(), fixture.encode.begin(), fixture.encode.end());
        args.push_back(dir.File(fixture.file));
        it::Ffmpeg(args);
        ExpectAsFfmpegReadsIt(dir, args.back(), i % 2 == 1);
    }
    // fdhost's --start and --frames cut in whole frames (16-bit 5.1: 12 bytes a frame).
    const std::string surround = dir.File("surround.mka"), raw = dir.File("cut.raw");
    const it::RunResult cut =
        it::Fdhost({"decode", "--raw", "--quiet", "--start", "24000", "--frames", "1000", surround, "-o", raw});
    ASSERT_EQ(cut.exitCode, 0) << cut.err;
    EXPECT_TRUE(it::ReadFile(raw) == it::ReferenceDecode(surround, "0.5").data.substr(0, 12000));
}

// A two-line comment, a value holding ":" and an empty value in a format whose tags only the worker reads; two audio
// streams; a Matroska file that only ffmpeg reads; a URL, which no tag engine reads.
TEST(DecodeExact, DumpsOfTagsStreamsAndCutFiles) {
    it::TempDir dir;
    it::WriteFile(dir.File("meta.txt"), ";FFMETADATA1\ntitle=A title\ncomment=first line\\\nsecond line\n"
                                        "artist=Someone: with a colon\nempty=\n");
    const std::string mp3 = dir.File("tagged.mp3"), two = dir.File("two.mka"), cut = dir.File("cut.mka");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1.5", "-i", dir.File("meta.txt"), "-map_metadata", "1", "-c:a",
                "libmp3lame", mp3});
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1", "-f", "lavfi", "-i", "sine=duration=1:frequency=880", "-map",
                "0", "-map", "1", "-c:a:0", "ac3", "-c:a:1", "flac", "-metadata", "title=Two", two});
    it::WriteFile(cut, it::ReadFile(two).substr(0, 20000));
    ExpectAsFfmpegReadsIt(dir, mp3, false,
                          {{"title", "A title"}, {"comment", "first line\nsecond line"}, {"artist", "Someone: with a colon"}});
    ExpectAsFfmpegReadsIt(dir, two, true);
    ExpectAsFfmpegReadsIt(dir, "file://" + two, true, {{"title", "Two"}});
    ExpectAsFfmpegReadsIt(dir, cut, false, {{"title", "Two"}}, "Couldn't parse Matroska tags: Corrupted file or "
        "unsupported format. The tags shown are the metadata that FFmpeg read.  [clDecoder_ffmpeg::Open]\r\n");
}

}  // namespace
