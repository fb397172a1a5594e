// The stream header reader and the dump parser on what the real worker
// program writes, for inputs made here by the same program.

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "codecs/decoders/ffmpeg/stderrparse.h"
#include "codecs/decoders/ffmpeg/stderrqueue.h"
#include "codecs/decoders/ffmpeg/wavestream.h"
#include "transport/exceptions.h"

namespace {

namespace fs = std::filesystem;

// Runs the worker through the shell; false when it failed.
bool RunWorker(const std::string& arguments) {
    return std::system(("'" + std::string(FD_FFMPEG_PATH) + "' -nostdin -y " + arguments).c_str()) == 0;
}

std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The worker's output for `input` as the plug-in reads it, the dump delivered.
struct Decoded {
    std::string wave64;
    StdErrParse parse;
    DecoderFormat format{};
    IDTags metadata;
    IDTags info;
};

void Decode(const fs::path& dir, const std::string& input, Decoded& d) {
    ASSERT_TRUE(RunWorker("-i '" + input + "' -f w64 '" + (dir / "out.w64").string() + "' 2>'" + (dir / "err").string() + "'"));
    d.wave64 = ReadFile(dir / "out.w64");
    const std::string dump = ReadFile(dir / "err");
    std::vector<std::string> lines;
    Qel::streamInMemory stream(dump.data(), dump.size());
    StdErrLineReader reader(stream);
    try {
        for (;;) lines.push_back(reader.ReadLine());
    } catch (const Qel::invalid_input&) {
    }
    ParseStdErr([&] { return std::exchange(lines, {}); }, d.parse);
    DeliverStdErr(d.parse, d.format, d.metadata, d.info);
}

TEST(WorkerOutput, FlacWithMetadataAndTwoAudioStreams) {
    const fs::path dir = fs::temp_directory_path() / ("fd_worker_output_" + std::to_string(::getpid()));
    fs::create_directories(dir);
    const std::string flac = (dir / "in.flac").string();
    ASSERT_TRUE(RunWorker("-v error -f lavfi -i sine=frequency=440:sample_rate=48000:duration=2 -ac 2 "
                    "-metadata title='A title' -metadata artist='a: b' "
                    "-metadata comment=\"$(printf 'first line\\nsecond line')\" '" + flac + "'"));
    Decoded d;
    Decode(dir, flac, d);
    clWaveFormat wave;
    DecoderFormat format{};
    uint64_t dataSize = 0;
    Qel::streamInMemory stream(d.wave64.data(), d.wave64.size());
    ReadStreamHeader(stream, wave, format, dataSize);
    EXPECT_EQ(wave.EffectiveTag(), 1);
    EXPECT_EQ(wave.Channels(), 2);
    EXPECT_EQ(wave.SamplesPerSecond(), 48000u);
    EXPECT_EQ(wave.BlockAlign(), 4);
    EXPECT_EQ(dataSize, 2u * 48000u * 4u);
    std::vector<uint8_t> samples(dataSize + 1);
    EXPECT_EQ(stream.read(samples.data(), samples.size()), dataSize) << "the header ends at the samples";

    EXPECT_TRUE(d.parse.done);
    EXPECT_NEAR(d.parse.durationSeconds, 2.0, 0.05);
    EXPECT_GT(d.parse.bitrate, 0u);
    for (const auto& [name, value] : {std::pair<const char16_t*, const char16_t*>{u"title", u"A title"},
                                      {u"artist", u"a: b"}, {u"comment", u"first line\nsecond line"}}) {
        const IDTag* tag = d.metadata.Find(clString(name), false);
        ASSERT_NE(tag, nullptr);
        EXPECT_EQ(tag->Value, clString(value));
    }
    ASSERT_EQ(d.info.Count(), 1);
    EXPECT_EQ(d.info[0].Value, clString(u"flac"));

    const std::string mka = (dir / "in.mka").string();
    ASSERT_TRUE(RunWorker("-v error -f lavfi -i sine=duration=1 -f lavfi -i sine=frequency=880:duration=1 "
                    "-map 0 -map 1 -c:a:0 flac -c:a:1 pcm_s16le '" + mka + "'"));
    Decoded two;
    Decode(dir, mka, two);
    ASSERT_EQ(two.info.Count(), 2);
    EXPECT_EQ(two.info[0].Value, clString(u"flac"));
    EXPECT_EQ(two.info[1].Value.View().substr(0, 9), u"pcm_s16le");
    EXPECT_EQ(two.format.durationMs / 100, 10);
    fs::remove_all(dir);
}

}  // namespace
