// The parse of the worker's input dump, over literal dumps of the forms the
// worker prints.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/stderrparse.h"

namespace {

using Lines = std::vector<std::string>;
using Entries = std::vector<std::pair<std::string, std::string>>;

Entries Of(const IDTags& tags) {
    Entries entries;
    for (int i = 0; i < tags.Count(); ++i) entries.emplace_back(tags[i].Name.ToUtf8(), tags[i].Value.ToUtf8());
    return entries;
}

// Hands the lines out in batches of `batchSize`, then empty batches.
struct Batches {
    Lines lines;
    size_t batchSize;
    size_t next = 0;
    int calls = 0;
    Lines operator()() {
        ++calls;
        Lines batch;
        while (next < lines.size() && batch.size() < batchSize) batch.push_back(lines[next++]);
        return batch;
    }
};

Batches Split(const std::string& text, size_t batchSize) {
    Batches batches{{}, batchSize};
    for (size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        batches.lines.push_back(text.substr(start, end - start));
    }
    return batches;
}

StdErrParse Parse(const std::string& text, size_t batchSize = 1000) {
    Batches batches = Split(text, batchSize);
    StdErrParse parse;
    ParseStdErr(std::ref(batches), parse);
    return parse;
}

struct Delivered {
    DecoderFormat format{};
    IDTags metadata;
    IDTags info;
    // The record is packed: its fields are copied out, never bound.
    int64_t DurationMs() const { return format.durationMs; }
    uint32_t Bitrate() const { return format.bitrate; }
};

Delivered Deliver(const StdErrParse& parse) {
    Delivered d;
    d.format.bitrate = 7;
    d.format.durationMs = 7;
    DeliverStdErr(parse, d.format, d.metadata, d.info);
    return d;
}

const std::string kFlacWithCover =
    "ffmpeg version 9.9 Copyright (c) 2000-2099 the developers\n"
    "  Metadata:\n"
    "    title           : from the banner\n"
    "  Duration: 01:00:00.00, start: 0.000000, bitrate: 1 kb/s\n"
    "Input #0, flac, from 'x.flac':\n"
    "  Metadata:\n"
    "    title           : A title\n"
    "    comment         : first line\n"
    "                    : second line\n"
    "    artist          : a: b\n"
    "    album           : \n"
    "  Duration: 00:03:25.50, start: 0.000000, bitrate: 905 kb/s\n"
    "  Stream #0:0: Audio: flac, 44100 Hz, stereo, s16\n"
    "  Stream #0:1: Video: mjpeg (Baseline), yuvj420p(pc, bt470bg/unknown/unknown), 500x500, 90k tbn (attached pic)\n"
    "    Metadata:\n"
    "      comment         : Cover (front)\n"
    "Stream mapping:\n"
    "  Stream #0:0 -> #0:0 (flac (native) -> pcm_s16le (native))\n"
    "Output #0, w64, to 'pipe:':\n"
    "  Metadata:\n"
    "    title           : from the output\n"
    "  Stream #0:0: Audio: pcm_s16le, 44100 Hz, stereo, s16, 1411 kb/s\n";

}  // namespace

TEST(StdErrParse, FlacDumpWithCoverInAnyBatching) {
    for (size_t batch : {1000u, 1u, 2u, 7u}) {
        SCOPED_TRACE(batch);
        const StdErrParse parse = Parse(kFlacWithCover, batch);
        EXPECT_TRUE(parse.done);
        EXPECT_DOUBLE_EQ(parse.durationSeconds, 205.5);
        EXPECT_EQ(parse.bitrate, 905000u);
        EXPECT_EQ(parse.metadata, (Entries{{"title", "A title"}, {"comment", "first line\nsecond line"},
                                           {"artist", "a: b"}, {"album", ""}}));
        ASSERT_EQ(parse.streams.size(), 2u);
        EXPECT_EQ(parse.streams[0].type + "/" + parse.streams[0].codec, "Audio/flac");
        EXPECT_EQ(parse.streams[0].details, (Lines{"44100 Hz", "stereo", "s16"}));
        EXPECT_EQ(parse.streams[1].type + "/" + parse.streams[1].codec, "Video/mjpeg (Baseline)");

        const Delivered d = Deliver(parse);
        EXPECT_EQ(d.DurationMs(), 205500);
        EXPECT_EQ(d.Bitrate(), 905000u);
        EXPECT_EQ(Of(d.metadata), (Entries{{"title", "A title"}, {"comment", "first line\nsecond line"},
                                           {"artist", "a: b"}}))
            << "the empty album is dropped";
        EXPECT_EQ(Of(d.info), (Entries{{"Encoder", "flac"}})) << "the cover adds nothing";
    }
    // Lines behind the end of the dump are not asked for.
    Batches one = Split(kFlacWithCover + std::string(100, '\n'), 1);
    StdErrParse parse;
    ParseStdErr(std::ref(one), parse);
    EXPECT_TRUE(parse.done);
    EXPECT_LT(static_cast<size_t>(one.calls), one.lines.size());
}

TEST(StdErrParse, SilenceOrACutDumpEndsTheParseWithWhatWasFound) {
    StdErrParse parse;
    parse.bitrate = 99;
    parse.metadata.emplace_back("stale", "entry");
    ParseStdErr([] { return Lines(); }, parse);
    EXPECT_FALSE(parse.inInput);
    EXPECT_EQ(parse.bitrate, 0u);
    EXPECT_TRUE(parse.metadata.empty());
    const Delivered d = Deliver(parse);
    EXPECT_EQ(d.DurationMs(), 0);
    EXPECT_EQ(d.Bitrate(), 0u);
    EXPECT_EQ(d.metadata.Count() + d.info.Count(), 0);

    // The worker died mid-dump.
    const StdErrParse cut = Parse("Input #0, mp3, from 'x.mp3':\n  Metadata:\n    title           : Half\n");
    EXPECT_TRUE(cut.inInput);
    EXPECT_FALSE(cut.done);
    ASSERT_EQ(cut.metadata.size(), 1u);
    EXPECT_EQ(cut.metadata[0].second, "Half");
}

TEST(StdErrParse, BitrateAndDurationForms) {
    const std::pair<const char*, uint32_t> bitrates[] = {
        {"1411 KB/S", 1411000u}, {"1411 kb/s", 1411000u}, {"64000 B/s", 64000u}, {"320 kbit/s", 0u},
        {"320kb/s", 0u}, {"N/A", 0u}, {"99999999999 kb/s", UINT32_MAX},
    };
    const std::string input = "Input #0, wav, from 'x':\n  Duration: ";
    for (const auto& [text, expected] : bitrates) {
        EXPECT_EQ(Parse(input + "00:00:01.00, start: 0.0, bitrate: " + text + "\nEnd\n").bitrate, expected) << text;
    }
    // Truncated to milliseconds.
    const std::pair<const char*, int64_t> durations[] = {
        {"00:00:01.9999", 1999}, {"01:02:03.25", 3723250}, {"100:00:00.00", 360000000}, {"12.5", 12500}};
    for (const auto& [text, expected] : durations) {
        EXPECT_EQ(Deliver(Parse(input + text + ", start: 0\nEnd\n")).DurationMs(), expected) << text;
    }

    const StdErrParse na = Parse(
        "Input #0, mpegts, from 'udp://x':\n"
        "  Duration: N/A, start: 1.400000, bitrate: N/A\n"
        "  Stream #0:0[0x101]: Audio: mp2, 48000 Hz, stereo, fltp, 192 kb/s\n"
        "End\n");
    EXPECT_EQ(na.durationSeconds, 0.0);
    EXPECT_EQ(na.bitrate, 0u);
    ASSERT_EQ(na.streams.size(), 1u);
    EXPECT_EQ(na.streams[0].codec, "mp2");
}

TEST(StdErrParse, StreamsOfEveryKind) {
    const StdErrParse parse = Parse(
        "Input #0, matroska,webm, from 'x.mkv':\n"
        "  Duration: 00:00:10.00, start: 0.000000, bitrate: 256 kb/s\n"
        "  Stream #0:0(eng): Audio: aac (LC) (mp4a / 0x6134), 44100 Hz, stereo, fltp, 128 kb/s (default)\n"
        "    Metadata:\n"
        "      title           : Main\n"
        "  Stream #0:1(ger): Audio: ac3, 48000 Hz, 5.1(side), fltp, 448 kb/s\n"
        "  Stream #0:2: Subtitle: subrip\n"
        "  Stream #0:3 without a colon behind the number\n"
        "  Stream #1:0: Audio: mp3, 44100 Hz\n"
        "  Chapters:\n"
        "    Chapter #0:0: start 0.000000, end 5.000000\n"
        "      Metadata:\n"
        "        title           : Chapter 1\n"
        "  Stream #0:4: Audio\n"
        "Input #1, wav, from 'y.wav':\n"
        "  Stream #0:9: Audio: pcm_s16le\n");
    EXPECT_TRUE(parse.done);
    EXPECT_TRUE(parse.metadata.empty()) << "stream and chapter metadata are not the input's";
    ASSERT_EQ(parse.streams.size(), 4u);
    EXPECT_EQ(parse.streams[0].codec, "aac (LC) (mp4a / 0x6134)");
    EXPECT_EQ(parse.streams[0].details, (Lines{"44100 Hz", "stereo", "fltp", "128 kb/s (default)"}));
    EXPECT_EQ(parse.streams[1].codec, "ac3");
    EXPECT_EQ(parse.streams[2].type, "Subtitle");
    EXPECT_EQ(parse.streams[3].type + "/" + parse.streams[3].codec, "Audio/");

    EXPECT_EQ(Of(Deliver(parse).info),
              (Entries{{"Encoder", "aac (LC) (mp4a / 0x6134)"}, {"Encoder", "ac3"}, {"Encoder", ""}}));

    StdErrParse lines;
    for (const char* refused : {"Stream #0:0", "Stream #0:", "Stream #1:0: Audio: mp3", "stream #0:0: Audio: mp3"}) {
        EXPECT_FALSE(ParseStreamLine(lines, refused)) << refused;
    }
    EXPECT_TRUE(lines.streams.empty());
    // The ":" search starts at character 10, right behind "Stream #0:".
    EXPECT_TRUE(ParseStreamLine(lines, "Stream #0::Audio:x,,a ,"));
    ASSERT_EQ(lines.streams.size(), 1u);
    EXPECT_EQ(lines.streams[0].type + "/" + lines.streams[0].codec, "Audio/x");
    EXPECT_EQ(lines.streams[0].details, (Lines{"", "a", ""}));
}

TEST(StdErrParse, MetadataLineFormsAndUtf8) {
    StdErrParse parse;
    for (const char* line : {"          : orphan continuation", "no colon here", "key   :   two blanks stay",
                             "  odd key : v", "tight:value", "url   : http://x:80/a", "      : more", "      :"}) {
        ParseMetadataLine(parse, line);
    }
    ASSERT_EQ(parse.metadata.size(), 4u);
    EXPECT_EQ(parse.metadata[0], std::make_pair(std::string("key"), std::string("  two blanks stay")));
    EXPECT_EQ(parse.metadata[1].first, "  odd key");
    EXPECT_EQ(parse.metadata[2], std::make_pair(std::string("tight"), std::string("value")));
    EXPECT_EQ(parse.metadata[3].second, "http://x:80/a\nmore\n");

    const Delivered d = Deliver(Parse(
        "Input #0, mp3, from 'x.mp3':\n  Metadata:\n    title           : \xC3\x9C" "ber \xE2\x99\xAA \xF0\x9D\x84\x9E\n"
        "  Duration: 00:00:02.00, start: 0.000000, bitrate: 100 kb/s\nEnd\n"));
    ASSERT_EQ(d.metadata.Count(), 1);
    EXPECT_EQ(d.metadata[0].Value, clString(u"\u00DCber \u266A \U0001D11E"));
}
