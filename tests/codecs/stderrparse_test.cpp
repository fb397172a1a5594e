// The parse of the worker's input dump, over literal dumps of the forms the
// worker prints, each summed up as what the host is handed.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/stderrparse.h"

namespace {

using Lines = std::vector<std::string>;

// Hands the lines of `text` out in batches of `batchSize`, then empty batches.
struct Batches {
    Batches(const std::string& text, size_t batchSize) : batchSize(batchSize) {
        for (size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
            lines.push_back(text.substr(start, end - start));
    }
    Lines operator()() {
        ++calls;
        const size_t end = std::min(lines.size(), next + batchSize);
        Lines batch(lines.begin() + static_cast<ptrdiff_t>(next), lines.begin() + static_cast<ptrdiff_t>(end));
        next = end;
        return batch;
    }
    Lines lines;
    size_t batchSize, next = 0, calls = 0;
};

std::string Entries(const IDTags& tags) {
    std::string out;
    for (int i = 0; i < tags.Count(); ++i) out += tags[i].Name.ToUtf8() + "=" + tags[i].Value.ToUtf8() + ";";
    return out;
}

// The parse as the host gets it: "ms kbps | metadata | Encoder entries",
// and the streams as "type/codec{details}".
std::string Summary(const StdErrParse& parse) {
    DecoderFormat format{};
    format.bitrate = format.durationMs = 7;
    IDTags metadata, info;
    DeliverStdErr(parse, format, metadata, info);
    std::string out = std::to_string(format.durationMs) + "ms " + std::to_string(format.bitrate) + "bps |" +
                      Entries(metadata) + "|" + Entries(info) + "|";
    for (const StdErrStream& stream : parse.streams) {
        out += stream.type + "/" + stream.codec + "{";
        for (const std::string& detail : stream.details) out += detail + ",";
        out += "}";
    }
    return out + (parse.done ? "" : " (not done)");
}

std::string Parse(const std::string& text, size_t batchSize = 1000) {
    Batches batches(text, batchSize);
    StdErrParse parse;
    ParseStdErr(std::ref(batches), parse);
    return Summary(parse);
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

TEST(StdErrParse, DumpsAsTheHostGetsThem) {
    const std::string input = "Input #0, wav, from 'x':\n  Duration: ";
    const struct { const char* name; std::string dump, summary; } rows[] = {
        // The banner and the output's dump are not the input's; the empty album and the cover add nothing.
        {"flac with a cover", kFlacWithCover,
         "205500ms 905000bps |title=A title;comment=first line\nsecond line;artist=a: b;|Encoder=flac;|Audio/flac{44100 "
         "Hz,stereo,s16,}Video/mjpeg (Baseline){yuvj420p(pc,bt470bg/unknown/unknown),500x500,90k tbn (attached pic),}"},
        {"silence", "", "0ms 0bps ||| (not done)"},
        {"the worker died mid-dump", "Input #0, mp3, from 'x.mp3':\n  Metadata:\n    title           : Half\n",
         "0ms 0bps |title=Half;|| (not done)"},
        {"bitrate overflow", input + "00:00:01.00, start: 0.0, bitrate: 99999999999 kb/s\nEnd\n", "1000ms 4294967295bps |||"},
        // Durations are truncated to milliseconds.
        {"fraction of 4 digits", input + "00:00:01.9999, start: 0\nEnd\n", "1999ms 0bps |||"},
        {"hours", input + "01:02:03.25, start: 0\nEnd\n", "3723250ms 0bps |||"},
        {"100 hours", input + "100:00:00.00, start: 0\nEnd\n", "360000000ms 0bps |||"},
        {"N/A", "Input #0, mpegts, from 'udp://x':\n  Duration: N/A, start: 1.400000, bitrate: N/A\n"
                "  Stream #0:0[0x101]: Audio: mp2, 48000 Hz, stereo, fltp, 192 kb/s\nEnd\n",
         "0ms 0bps ||Encoder=mp2;|Audio/mp2{48000 Hz,stereo,fltp,192 kb/s,}"},
        // Stream and chapter metadata are not the input's; a second input ends the dump.
        {"streams of every kind",
         "Input #0, matroska,webm, from 'x.mkv':\n"
         "  Duration: 00:00:10.00, start: 0.000000, bitrate: 256 kb/s\n"
         "  Stream #0:0(eng): Audio: aac (LC) (mp4a / 0x6134), 44100 Hz, stereo, fltp, 128 kb/s (default)\n"
         "    Metadata:\n      title           : Main\n"
         "  Stream #0:1(ger): Audio: ac3, 48000 Hz, 5.1(side), fltp, 448 kb/s\n"
         "  Stream #0:2: Subtitle: subrip\n"
         "  Stream #0:3 without a colon behind the number\n"
         "  Stream #1:0: Audio: mp3, 44100 Hz\n"
         "  Chapters:\n    Chapter #0:0: start 0.000000, end 5.000000\n      Metadata:\n        title           : Chapter 1\n"
         "  Stream #0:4: Audio\n"
         "Input #1, wav, from 'y.wav':\n  Stream #0:9: Audio: pcm_s16le\n",
         "10000ms 256000bps ||Encoder=aac (LC) (mp4a / 0x6134);Encoder=ac3;Encoder=;|Audio/aac (LC) (mp4a / 0x6134){44100 "
         "Hz,stereo,fltp,128 kb/s (default),}Audio/ac3{48000 Hz,5.1(side),fltp,448 kb/s,}Subtitle/subrip{}Audio/{}"},
        {"UTF-8", "Input #0, mp3, from 'x.mp3':\n  Metadata:\n    title           : \xC3\x9C" "ber \xF0\x9D\x84\x9E\nEnd\n",
         "0ms 0bps |title=\xC3\x9C" "ber \xF0\x9D\x84\x9E;||"},
    };
    for (const auto& row : rows) EXPECT_EQ(Parse(row.dump), row.summary) << row.name;
    for (size_t batch : {1u, 2u, 7u}) EXPECT_EQ(Parse(kFlacWithCover, batch), Parse(kFlacWithCover)) << batch;

    // Lines behind the end of the dump are not asked for.
    Batches one(kFlacWithCover + std::string(100, '\n'), 1);
    StdErrParse parse;
    parse.metadata.emplace_back("stale", "entry");   // a parse starts from nothing
    ParseStdErr(std::ref(one), parse);
    EXPECT_LT(one.calls, one.lines.size());
    EXPECT_EQ(parse.metadata.front().first, "title");
}
