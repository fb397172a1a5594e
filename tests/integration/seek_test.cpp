// SetPosition starts a new worker with "-ss": the bytes are ffmpeg's own for
// that start time, and the blocks report the positions a host relies on.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/decoder.h"
#include "plugindriver.h"
#include "testkit.h"

namespace {

constexpr uint64_t kFramesPerBlock = 4096;

TEST(Seek, SetPositionGivesFfmpegsOwnBytesForThatStart) {
    it::TempDir dir;
    const std::string flac = dir.File("tone.flac");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=frequency=300:duration=3", "-ac", "2", flac});
    const std::string ac3 = dir.File("tone.ac3");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=frequency=300:duration=3:sample_rate=48000", "-ac", "2", "-c:a", "ac3", ac3});

    for (const std::string& path : {flac, ac3}) {
        it::TestDecoder decoder;
        ASSERT_TRUE(decoder.Open(path, 0)) << decoder.ErrorLog();
        const uint32_t rate = it::U32At(it::FormatHead(decoder.Format()), 4);
        // Whole seconds, fractions, a position behind the end, and back to the start.
        for (const int64_t position : {int64_t{rate}, int64_t{rate} / 3 + 7, int64_t{rate} * 5, int64_t{0}}) {
            SCOPED_TRACE(path + " at " + std::to_string(position));
            ASSERT_TRUE(decoder.SetPosition(position)) << decoder.ErrorLog();
            std::string samples;
            ASSERT_TRUE(decoder.ReadToEnd(samples));
            const std::string seconds =
                position > 0 ? clDecoder_ffmpeg::SecondsText(static_cast<double>(position) / rate) : std::string();
            const it::Wave64 reference = it::ReferenceDecode(dir, path, seconds);
            EXPECT_EQ(samples.size(), reference.data.size());
            EXPECT_TRUE(samples == reference.data) << "sample bytes differ";
        }
        EXPECT_EQ(decoder.ErrorLog(), "");
    }
}

// Milliseconds since the start of the worker, plus the frame position of the
// last SetPosition: the sum of unlike units is what a host has always got.
TEST(Seek, BlocksReportTheirPosition) {
    it::TempDir dir;
    const std::string path = dir.File("tone.flac");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=2", "-ac", "2", path});

    it::TestDecoder decoder;
    ASSERT_TRUE(decoder.Open(path, 0));
    for (const int64_t start : {int64_t{0}, int64_t{30000}}) {
        SCOPED_TRACE(start);
        if (start != 0) {
            ASSERT_TRUE(decoder.SetPosition(start));
        }
        std::string samples;
        std::vector<DecoderBlockInfo> blocks;
        ASSERT_TRUE(decoder.ReadToEnd(samples, &blocks));
        ASSERT_GT(blocks.size(), 3u);
        const std::string format = it::FormatHead(blocks[0].format);
        const uint64_t blockAlign = it::U16At(format, 12);
        const uint64_t perSecond = it::U32At(format, 8);
        uint64_t dataRead = 0;
        // The records are packed: their fields are copied, never bound.
        for (size_t i = 0; i < blocks.size(); ++i) {
            const uint64_t position = blocks[i].position;
            const uint64_t bytes = blocks[i].bytes;
            const int endOfStream = blocks[i].endOfStream;
            EXPECT_EQ(position, dataRead * 1000 / perSecond + static_cast<uint64_t>(start)) << i;
            if (i + 1 < blocks.size()) {
                EXPECT_EQ(bytes, blockAlign * kFramesPerBlock) << "only the last block is short";
                EXPECT_EQ(endOfStream, 0);
            } else {
                EXPECT_EQ(endOfStream, 1);
            }
            if (i == 0) {
                EXPECT_EQ(position, static_cast<uint64_t>(start));
            }
            dataRead += bytes;
        }
    }
}

}  // namespace
