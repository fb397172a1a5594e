// The stream header reader and the dump parser on what the real worker
// program writes, for inputs made here by the same program.

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/stderrparse.h"
#include "codecs/decoders/ffmpeg/stderrqueue.h"
#include "codecs/decoders/ffmpeg/wavestream.h"
#include "transport/exceptions.h"

namespace {

namespace fs = std::filesystem;

class WorkerOutput : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("fd_worker_output_" + std::to_string(::getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string Path(const std::string& name) const { return (dir_ / name).string(); }

    // Runs the worker with `arguments`; false when it failed.
    static bool Run(const std::string& arguments) {
        const std::string command = std::string("'") + FD_FFMPEG_PATH + "' -nostdin -y " + arguments;
        return std::system(command.c_str()) == 0;
    }

    static std::string ReadFile(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    // Decodes `input` as a host would: Wave64 on stdout, the dump on stderr.
    bool Decode(const std::string& input, std::string& wave64, std::string& dump) const {
        const std::string out = Path("out.w64");
        const std::string err = Path("err.txt");
        if (!Run("-i '" + input + "' -f w64 '" + out + "' 2>'" + err + "'")) return false;
        wave64 = ReadFile(out);
        dump = ReadFile(err);
        return true;
    }

    static StdErrParse ParseDump(const std::string& dump) {
        std::vector<std::string> lines;
        Qel::streamInMemory stream(dump.data(), dump.size());
        try {
            for (;;) lines.push_back(ReadLine(stream));
        } catch (const Qel::invalid_input&) {
        }
        bool given = false;
        StdErrParse parse;
        ParseStdErr(
            [&] {
                if (given) return std::vector<std::string>();
                given = true;
                return lines;
            },
            parse);
        return parse;
    }

    fs::path dir_;
};

}  // namespace

TEST_F(WorkerOutput, FlacWithMetadata) {
    const std::string flac = Path("in.flac");
    ASSERT_TRUE(Run("-v error -f lavfi -i sine=frequency=440:sample_rate=48000:duration=2 -ac 2 "
                    "-metadata title='A title' -metadata artist='a: b' "
                    "-metadata comment=\"$(printf 'first line\\nsecond line')\" '" + flac + "'"));
    std::string wave64;
    std::string dump;
    ASSERT_TRUE(Decode(flac, wave64, dump));

    clWaveFormat wave;
    DecoderFormat format{};
    uint64_t dataSize = 0;
    Qel::streamInMemory stream(wave64.data(), wave64.size());
    ReadStreamHeader(stream, wave, format, dataSize);
    EXPECT_EQ(wave.EffectiveTag(), 1);
    EXPECT_EQ(wave.Channels(), 2);
    EXPECT_EQ(wave.SamplesPerSecond(), 48000u);
    EXPECT_EQ(wave.BlockAlign(), 4);
    EXPECT_EQ(dataSize, 2u * 48000u * 4u);
    std::vector<uint8_t> samples(dataSize + 1);
    EXPECT_EQ(stream.read(samples.data(), samples.size()), dataSize);   // the header ends at the samples

    const StdErrParse parse = ParseDump(dump);
    EXPECT_TRUE(parse.done);
    EXPECT_NEAR(parse.durationSeconds, 2.0, 0.05);
    EXPECT_GT(parse.bitrate, 0u);
    DecoderFormat delivered{};
    IDTags metadata;
    IDTags info;
    DeliverStdErr(parse, delivered, metadata, info);
    const IDTag* title = metadata.Find(clString(u"title"), false);
    ASSERT_NE(title, nullptr);
    EXPECT_EQ(title->Value, clString(u"A title"));
    const IDTag* artist = metadata.Find(clString(u"artist"), false);
    ASSERT_NE(artist, nullptr);
    EXPECT_EQ(artist->Value, clString(u"a: b"));
    const IDTag* comment = metadata.Find(clString(u"comment"), false);
    ASSERT_NE(comment, nullptr);
    EXPECT_EQ(comment->Value, clString(u"first line\nsecond line"));
    ASSERT_EQ(info.Count(), 1);
    EXPECT_EQ(info[0].Value, clString(u"flac"));
}

TEST_F(WorkerOutput, TwoAudioStreamsGiveTwoEncoders) {
    const std::string mka = Path("in.mka");
    ASSERT_TRUE(Run("-v error -f lavfi -i sine=duration=1 -f lavfi -i sine=frequency=880:duration=1 "
                    "-map 0 -map 1 -c:a:0 flac -c:a:1 pcm_s16le '" + mka + "'"));
    std::string wave64;
    std::string dump;
    ASSERT_TRUE(Decode(mka, wave64, dump));
    const StdErrParse parse = ParseDump(dump);
    DecoderFormat delivered{};
    IDTags metadata;
    IDTags info;
    DeliverStdErr(parse, delivered, metadata, info);
    ASSERT_EQ(info.Count(), 2);
    EXPECT_EQ(info[0].Value, clString(u"flac"));
    EXPECT_EQ(info[1].Value.View().substr(0, 9), u"pcm_s16le");
    EXPECT_EQ(delivered.durationMs / 100, 10);
}
