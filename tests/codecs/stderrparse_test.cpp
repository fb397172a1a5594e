// The parse of the worker's input dump, over literal dumps of the forms the
// worker prints.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/stderrparse.h"

namespace {

std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        lines.push_back(text.substr(start, end - start));
    }
    return lines;
}

// Hands the lines out in batches of `batchSize`, then empty batches.
struct Batches {
    std::vector<std::string> lines;
    size_t batchSize;
    size_t next = 0;
    int calls = 0;
    std::vector<std::string> operator()() {
        ++calls;
        std::vector<std::string> batch;
        while (next < lines.size() && batch.size() < batchSize) batch.push_back(lines[next++]);
        return batch;
    }
};

StdErrParse Parse(const std::string& text, size_t batchSize = 1000) {
    Batches batches{SplitLines(text), batchSize};
    StdErrParse parse;
    ParseStdErr(std::ref(batches), parse);
    return parse;
}

struct Delivered {
    DecoderFormat format{};
    IDTags metadata;
    IDTags info;
};

// The record is packed: its fields are copied out before a check binds a reference.
template <class T>
T Value(T field) {
    return field;
}

Delivered Deliver(const StdErrParse& parse) {
    Delivered d;
    d.format.bitrate = 7;
    d.format.durationMs = 7;
    DeliverStdErr(parse, d.format, d.metadata, d.info);
    return d;
}

const std::string kBanner =
    "ffmpeg version 9.9 Copyright (c) 2000-2099 the developers\n"
    "  built with gcc 12\n"
    "  Metadata:\n"
    "    title           : from the banner\n"
    "  Duration: 01:00:00.00, start: 0.000000, bitrate: 1 kb/s\n";

const std::string kFlacWithCover = kBanner +
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

TEST(StdErrParse, FlacDumpWithCover) {
    const StdErrParse parse = Parse(kFlacWithCover);
    EXPECT_TRUE(parse.done);
    EXPECT_DOUBLE_EQ(parse.durationSeconds, 205.5);
    EXPECT_EQ(parse.bitrate, 905000u);

    ASSERT_EQ(parse.metadata.size(), 4u);
    EXPECT_EQ(parse.metadata[0], std::make_pair(std::string("title"), std::string("A title")));
    EXPECT_EQ(parse.metadata[1].second, "first line\nsecond line");
    EXPECT_EQ(parse.metadata[2].second, "a: b");
    EXPECT_EQ(parse.metadata[3].first, "album");
    EXPECT_EQ(parse.metadata[3].second, "");

    ASSERT_EQ(parse.streams.size(), 2u);
    EXPECT_EQ(parse.streams[0].type, "Audio");
    EXPECT_EQ(parse.streams[0].codec, "flac");
    EXPECT_EQ(parse.streams[0].details, (std::vector<std::string>{"44100 Hz", "stereo", "s16"}));
    EXPECT_EQ(parse.streams[1].type, "Video");
    EXPECT_EQ(parse.streams[1].codec, "mjpeg (Baseline)");

    const Delivered d = Deliver(parse);
    EXPECT_EQ(Value(d.format.durationMs), 205500);
    EXPECT_EQ(Value(d.format.bitrate), 905000u);
    ASSERT_EQ(d.metadata.Count(), 3);   // the empty album is dropped
    EXPECT_EQ(d.metadata[0].Name, clString(u"title"));
    EXPECT_EQ(d.metadata[0].Value, clString(u"A title"));
    EXPECT_EQ(d.metadata[1].Value, clString(u"first line\nsecond line"));
    EXPECT_EQ(d.metadata[2].Name, clString(u"artist"));
    EXPECT_EQ(d.metadata[2].Value, clString(u"a: b"));
    ASSERT_EQ(d.info.Count(), 1);   // the cover adds nothing
    EXPECT_EQ(d.info[0].Name, clString(u"Encoder"));
    EXPECT_EQ(d.info[0].Value, clString(u"flac"));
}

TEST(StdErrParse, BatchingDoesNotChangeTheResult) {
    const StdErrParse whole = Parse(kFlacWithCover);
    for (size_t batch : {1u, 2u, 7u}) {
        const StdErrParse split = Parse(kFlacWithCover, batch);
        EXPECT_EQ(split.metadata, whole.metadata) << batch;
        EXPECT_EQ(split.streams.size(), whole.streams.size()) << batch;
        EXPECT_EQ(split.durationSeconds, whole.durationSeconds) << batch;
        EXPECT_EQ(split.bitrate, whole.bitrate) << batch;
    }
    // Lines behind the end of the dump are not asked for.
    Batches one{SplitLines(kFlacWithCover + std::string(100, '\n')), 1};
    StdErrParse parse;
    ParseStdErr(std::ref(one), parse);
    EXPECT_TRUE(parse.done);
    EXPECT_LT(static_cast<size_t>(one.calls), one.lines.size());
}

TEST(StdErrParse, SilenceEndsTheParseWithWhatWasFound) {
    StdErrParse parse;
    parse.bitrate = 99;
    parse.metadata.emplace_back("stale", "entry");
    ParseStdErr([] { return std::vector<std::string>(); }, parse);
    EXPECT_FALSE(parse.inInput);
    EXPECT_EQ(parse.bitrate, 0u);
    EXPECT_TRUE(parse.metadata.empty());
    const Delivered d = Deliver(parse);
    EXPECT_EQ(Value(d.format.durationMs), 0);
    EXPECT_EQ(Value(d.format.bitrate), 0u);
    EXPECT_EQ(d.metadata.Count(), 0);
    EXPECT_EQ(d.info.Count(), 0);

    // A dump that lost its end (the worker died) is parsed as far as it goes.
    const StdErrParse cut = Parse(
        "Input #0, mp3, from 'x.mp3':\n"
        "  Metadata:\n"
        "    title           : Half\n");
    EXPECT_TRUE(cut.inInput);
    EXPECT_FALSE(cut.done);
    ASSERT_EQ(cut.metadata.size(), 1u);
    EXPECT_EQ(cut.metadata[0].second, "Half");
}

TEST(StdErrParse, BitrateSuffixesAndMissingValues) {
    auto bitrateOf = [](const std::string& durationLine) {
        return Parse("Input #0, wav, from 'x':\n  " + durationLine + "\nEnd\n").bitrate;
    };
    EXPECT_EQ(bitrateOf("Duration: 00:00:01.00, start: 0.0, bitrate: 1411 KB/S"), 1411000u);
    EXPECT_EQ(bitrateOf("Duration: 00:00:01.00, start: 0.0, bitrate: 1411 kb/s"), 1411000u);
    EXPECT_EQ(bitrateOf("Duration: 00:00:01.00, start: 0.0, bitrate: 64000 B/s"), 64000u);
    EXPECT_EQ(bitrateOf("Duration: 00:00:01.00, start: 0.0, bitrate: 320 kbit/s"), 0u);
    EXPECT_EQ(bitrateOf("Duration: 00:00:01.00, start: 0.0, bitrate: 320kb/s"), 0u);
    EXPECT_EQ(bitrateOf("Duration: 00:00:01.00, start: 0.0, bitrate: N/A"), 0u);
    EXPECT_EQ(bitrateOf("Duration: 00:00:01.00, start: 0.0, bitrate: 99999999999 kb/s"), UINT32_MAX);

    const StdErrParse na = Parse(
        "Input #0, mpegts, from 'udp://x':\n"
        "  Duration: N/A, start: 1.400000, bitrate: N/A\n"
        "  Stream #0:0[0x101]: Audio: mp2, 48000 Hz, stereo, fltp, 192 kb/s\n"
        "End\n");
    EXPECT_EQ(na.durationSeconds, 0.0);
    EXPECT_EQ(na.bitrate, 0u);
    EXPECT_TRUE(na.inStreams);
    ASSERT_EQ(na.streams.size(), 1u);
    EXPECT_EQ(na.streams[0].codec, "mp2");
}

TEST(StdErrParse, DurationIsTruncatedToMilliseconds) {
    auto durationMsOf = [](const std::string& value) {
        return Value(Deliver(Parse("Input #0, wav, from 'x':\n  Duration: " + value + ", start: 0\nEnd\n"))
                         .format.durationMs);
    };
    EXPECT_EQ(durationMsOf("00:00:01.9999"), 1999);
    EXPECT_EQ(durationMsOf("01:02:03.25"), 3723250);
    EXPECT_EQ(durationMsOf("100:00:00.00"), 360000000);
    EXPECT_EQ(durationMsOf("12.5"), 12500);
    EXPECT_EQ(durationMsOf("00:0x1:00.00"), 60000);   // non-digits are passed over
    EXPECT_EQ(durationMsOf("00:00:1.2.3"), -1000);   // a second "." makes a part -1
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
    EXPECT_TRUE(parse.metadata.empty());
    ASSERT_EQ(parse.streams.size(), 4u);
    EXPECT_EQ(parse.streams[0].codec, "aac (LC) (mp4a / 0x6134)");
    EXPECT_EQ(parse.streams[0].details,
              (std::vector<std::string>{"44100 Hz", "stereo", "fltp", "128 kb/s (default)"}));
    EXPECT_EQ(parse.streams[1].codec, "ac3");
    EXPECT_EQ(parse.streams[2].type, "Subtitle");
    EXPECT_EQ(parse.streams[3].type, "Audio");   // a type without codec
    EXPECT_EQ(parse.streams[3].codec, "");

    const Delivered d = Deliver(parse);
    ASSERT_EQ(d.info.Count(), 3);
    EXPECT_EQ(d.info[0].Value, clString(u"aac (LC) (mp4a / 0x6134)"));
    EXPECT_EQ(d.info[1].Value, clString(u"ac3"));
    EXPECT_EQ(d.info[2].Value, clString(u""));
    for (int i = 0; i < d.info.Count(); ++i) EXPECT_EQ(d.info[i].Name, clString(u"Encoder"));
}

TEST(StdErrParse, StreamLineForms) {
    StdErrParse parse;
    EXPECT_FALSE(ParseStreamLine(parse, "Stream #0:0"));
    EXPECT_FALSE(ParseStreamLine(parse, "Stream #0:"));
    EXPECT_FALSE(ParseStreamLine(parse, "Stream #1:0: Audio: mp3"));
    EXPECT_FALSE(ParseStreamLine(parse, "stream #0:0: Audio: mp3"));
    EXPECT_TRUE(parse.streams.empty());
    // The ":" search starts at character 10, right behind "Stream #0:".
    EXPECT_TRUE(ParseStreamLine(parse, "Stream #0::Audio:x,,a ,"));
    ASSERT_EQ(parse.streams.size(), 1u);
    EXPECT_EQ(parse.streams[0].type, "Audio");
    EXPECT_EQ(parse.streams[0].codec, "x");
    EXPECT_EQ(parse.streams[0].details, (std::vector<std::string>{"", "a", ""}));
}

TEST(StdErrParse, MetadataLineForms) {
    StdErrParse parse;
    ParseMetadataLine(parse, "          : orphan continuation");
    ParseMetadataLine(parse, "no colon here");
    EXPECT_TRUE(parse.metadata.empty());

    ParseMetadataLine(parse, "key   :   two blanks stay");
    ParseMetadataLine(parse, "  odd key : v");
    ParseMetadataLine(parse, "tight:value");
    ParseMetadataLine(parse, "url   : http://x:80/a");
    ParseMetadataLine(parse, "      : more");
    ParseMetadataLine(parse, "      :");
    ASSERT_EQ(parse.metadata.size(), 4u);
    EXPECT_EQ(parse.metadata[0].second, "  two blanks stay");
    EXPECT_EQ(parse.metadata[1].first, "  odd key");
    EXPECT_EQ(parse.metadata[2], std::make_pair(std::string("tight"), std::string("value")));
    EXPECT_EQ(parse.metadata[3].second, "http://x:80/a\nmore\n");
}

TEST(StdErrParse, MetadataTextIsReadAsUtf8) {
    const StdErrParse utf8 = Parse(
        "Input #0, mp3, from 'x.mp3':\n"
        "  Metadata:\n"
        "    title           : \xC3\x9C" "ber \xE2\x99\xAA \xF0\x9D\x84\x9E\n"
        "  Duration: 00:00:02.00, start: 0.000000, bitrate: 100 kb/s\n"
        "End\n");
    const Delivered d = Deliver(utf8);
    ASSERT_EQ(d.metadata.Count(), 1);
    EXPECT_EQ(d.metadata[0].Value, clString(u"\u00DCber \u266A \U0001D11E"));
}
