// Every extension the plug-in offers that this ffmpeg can also write decodes
// through fdhost to exactly the bytes of ffmpeg's own Wave64 output, and the
// format record is that output's format chunk.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "plugindriver.h"
#include "testkit.h"

namespace {

struct Fixture {
    const char* file;
    std::vector<std::string> encode;   // ffmpeg arguments between the source and the file
    int sampleRate;
    int channels;
};

// A tone of one second; the 5.1 case gets a different level on every channel
// so that a channel swap shows.
std::vector<std::string> Source(int sampleRate, int channels) {
    std::vector<std::string> args = {"-f", "lavfi", "-i",
                                     "sine=frequency=440:duration=1:sample_rate=" + std::to_string(sampleRate)};
    if (channels == 6) {
        args.insert(args.end(), {"-af", "pan=5.1|c0=c0|c1=0.5*c0|c2=0.3*c0|c3=0.1*c0|c4=0.7*c0|c5=0.2*c0"});
    } else {
        args.insert(args.end(), {"-ac", std::to_string(channels)});
    }
    return args;
}

const std::vector<Fixture>& Fixtures() {
    static const std::vector<Fixture> all = {
        {"tone.ac3", {"-c:a", "ac3"}, 48000, 2},
        {"tone.eac3", {"-c:a", "eac3"}, 48000, 2},
        {"mono-u8.mka", {"-c:a", "pcm_u8"}, 44100, 1},
        {"s24.mka", {"-c:a", "pcm_s24le"}, 96000, 2},
        {"float.mka", {"-c:a", "pcm_f32le"}, 48000, 2},
        {"surround.mka", {"-c:a", "pcm_s16le"}, 48000, 6},
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
    return all;
}

std::string Make(const it::TempDir& dir, const Fixture& fixture) {
    std::vector<std::string> args = Source(fixture.sampleRate, fixture.channels);
    args.insert(args.end(), fixture.encode.begin(), fixture.encode.end());
    const std::string path = dir.File(fixture.file);
    args.push_back(path);
    it::Ffmpeg(args);
    return path;
}

TEST(DecodeExact, EveryWritableExtensionDecodesToFfmpegsOwnBytes) {
    it::TempDir dir;
    for (const Fixture& fixture : Fixtures()) {
        SCOPED_TRACE(fixture.file);
        const std::string input = Make(dir, fixture);
        const it::Wave64 reference = it::ReferenceDecode(dir, input);
        ASSERT_FALSE(reference.data.empty());

        const std::string raw = dir.File("out.raw");
        const it::RunResult run = it::Fdhost({"decode", "--raw", "--quiet", input, "-o", raw});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        const std::string samples = it::ReadFile(raw);
        EXPECT_EQ(samples.size(), reference.data.size());
        EXPECT_TRUE(samples == reference.data) << "sample bytes differ";

        it::TestDecoder decoder;
        ASSERT_TRUE(decoder.Open(input, 0)) << decoder.ErrorLog();
        EXPECT_EQ(it::FormatHead(decoder.Format()), reference.format.substr(0, it::FormatHead(decoder.Format()).size()));
        EXPECT_EQ(it::U16At(reference.format, 2), fixture.channels);
        decoder.Close();
    }
}

// The WAV that fdhost writes holds the same format and the same samples.
TEST(DecodeExact, WavOutputCarriesFormatAndSamples) {
    it::TempDir dir;
    const Fixture surround = Fixtures()[5];
    const std::string input = Make(dir, surround);
    const it::Wave64 reference = it::ReferenceDecode(dir, input);

    for (const bool toPipe : {false, true}) {
        SCOPED_TRACE(toPipe ? "standard output" : "file");
        std::string wav;
        if (toPipe) {
            // Through a pipe, which can't seek: the sizes stay "unknown".
            const it::RunResult run =
                it::Run({"/bin/sh", "-c", "\"$0\" decode --quiet \"$1\" -o - | cat", FD_HOST_PATH, input});
            ASSERT_EQ(run.exitCode, 0) << run.err;
            wav = run.out;
        } else {
            const std::string out = dir.File("out.wav");
            const it::RunResult run = it::Fdhost({"decode", "--quiet", input, "-o", out});
            ASSERT_EQ(run.exitCode, 0) << run.err;
            wav = it::ReadFile(out);
        }
        ASSERT_GT(wav.size(), 12u);
        ASSERT_EQ(wav.substr(0, 4), "RIFF");
        ASSERT_EQ(wav.substr(8, 4), "WAVE");
        const uint32_t riffSize = it::U32At(wav, 4);
        if (toPipe) {
            EXPECT_EQ(riffSize, 0xFFFFFFFFu);
        } else {
            EXPECT_EQ(riffSize, wav.size() - 8);
        }
        std::string format;
        std::string data;
        for (size_t pos = 12; pos + 8 <= wav.size();) {
            const std::string name = wav.substr(pos, 4);
            const uint32_t size = it::U32At(wav, pos + 4);
            if (name == "fmt ") format = wav.substr(pos + 8, size);
            if (name == "data") {
                data = wav.substr(pos + 8);
                if (!toPipe) {
                    EXPECT_EQ(size, data.size());
                }
                break;
            }
            pos += 8 + size + (size & 1);
        }
        EXPECT_EQ(format, reference.format);
        EXPECT_TRUE(data == reference.data) << "sample bytes differ";
    }

    // ffmpeg itself reads the file back to the same samples.
    const std::string out = dir.File("again.wav");
    ASSERT_EQ(it::Fdhost({"decode", "--quiet", input, "-o", out}).exitCode, 0);
    EXPECT_TRUE(it::ReferenceDecode(dir, out).data == reference.data);
}

// --start and --frames cut the output where they say, in whole frames.
TEST(DecodeExact, StartAndFramesCutTheOutput) {
    it::TempDir dir;
    const std::string input = Make(dir, Fixtures()[8]);   // TTA, 44100 Hz stereo
    const int64_t start = 22050;
    const it::Wave64 reference = it::ReferenceDecode(dir, input, "0.5");
    const std::string raw = dir.File("cut.raw");
    const it::RunResult run = it::Fdhost(
        {"decode", "--raw", "--quiet", "--start", std::to_string(start), "--frames", "1000", input, "-o", raw});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(it::ReadFile(raw) == reference.data.substr(0, 4000));
}

}  // namespace
