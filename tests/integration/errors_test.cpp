// What a failed Open tells the host's error log, and that it tells it
// promptly: a file that isn't there, one that isn't audio, a worker that
// isn't there, a URL nobody answers.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "plugindriver.h"
#include "testkit.h"

namespace {

using Clock = std::chrono::steady_clock;
// Well below the five seconds that a parse waits for a silent error stream.
constexpr auto kPromptly = std::chrono::seconds(3);
const std::string kStartLabel = "  [clDecoder_ffmpeg::SetPosition]\r\n";

// Opens `path` and gives the error log; the open must fail promptly.
std::string FailedOpenLog(it::TestDecoder& decoder, const std::string& path) {
    const auto start = Clock::now();
    EXPECT_FALSE(decoder.Open(path, kOpenWantTags | kOpenWantInfo));
    EXPECT_LT(Clock::now() - start, kPromptly);
    return decoder.ErrorLog();
}

TEST(OpenErrors, MissingFileNotAudioAndUnreachableUrl) {
    it::TempDir dir;
    {
        const std::string missing = dir.File("missing.flac");
        it::TestDecoder decoder;
        const std::string log = FailedOpenLog(decoder, missing);
        EXPECT_EQ(log.rfind("Error opening file '" + missing + "'", 0), 0u) << log;
        EXPECT_TRUE(log.ends_with(kStartLabel)) << log;
    }
    {
        const std::string text = dir.File("notes.mp3");
        it::WriteFile(text, "These are notes, not audio.\n");
        it::TestDecoder decoder;
        EXPECT_EQ(FailedOpenLog(decoder, text), "File could not be decoded" + kStartLabel);
    }
    {
        // A picture is a file the worker reads, but it has no audio to give.
        const std::string picture = dir.File("cover.png");
        it::Ffmpeg({"-f", "lavfi", "-i", "color=c=blue:s=16x16", "-frames:v", "1", picture});
        it::TestDecoder decoder;
        EXPECT_EQ(FailedOpenLog(decoder, picture), "File could not be decoded" + kStartLabel);
    }
    {
        it::TestDecoder decoder;
        EXPECT_EQ(FailedOpenLog(decoder, "http://127.0.0.1:9/none.mp3"), "File could not be decoded" + kStartLabel);
    }
    EXPECT_EQ(it::ChildrenAfter(0), 0);
}

TEST(OpenErrors, MissingWorker) {
    // The plug-in in a folder layout of its own, with no worker one folder up.
    it::TempDir dir;
    std::filesystem::create_directories(dir.File("lib/plugins"));
    const std::string copy = dir.File("lib/plugins/ffmpeg_decoder.so");
    std::filesystem::copy_file(FD_PLUGIN_PATH, copy);
    const std::string input = dir.File("tone.flac");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=0.5", input});

    it::PluginLibrary library(copy);
    it::TestDecoder decoder(library);
    EXPECT_EQ(FailedOpenLog(decoder, input), "FFmpeg error: file not found" + kStartLabel);
    DecoderBlockInfo block{};
    EXPECT_FALSE(decoder.DecodeBlock(block)) << "no worker, nothing to read";
    EXPECT_TRUE(decoder.Close());

    // Beside a worker, the same copy decodes.
    std::filesystem::create_symlink(FD_FFMPEG_PATH, dir.File("lib/ffmpeg-lgpl"));
    it::TestDecoder working(library);
    EXPECT_TRUE(working.Open(input, 0)) << working.ErrorLog();
}

TEST(OpenErrors, RefusedRecordsAndTheTrace) {
    {
        it::TestDecoder decoder;
        DecoderOpenInfo info{};
        info.path = u"/nowhere.flac";
        info.flags = kOpenExternalPackets;
        EXPECT_FALSE(decoder.OpenRecord(info));
        EXPECT_EQ(decoder.ErrorLog(), "Error cannot decode external-packet data.  [clDecoder_ffmpeg::Open]\r\n");
    }
    {
        it::TestDecoder decoder;
        DecoderOpenInfo info{};
        info.flags = kOpenWantTags;
        EXPECT_FALSE(decoder.OpenRecord(info));
        EXPECT_EQ(decoder.ErrorLog(), "Attempting to open null file path.  [clDecoder_ffmpeg::Open]\r\n");
        EXPECT_NE(decoder.TraceLog().find("Opening file '' for read access: *** Error: Attempting"), std::string::npos)
            << decoder.TraceLog();
    }
    {
        it::TempDir dir;
        const std::string input = dir.File("tone.flac");
        it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=0.5", input});
        it::TestDecoder decoder;
        ASSERT_TRUE(decoder.Open(input, 0));
        const std::string trace = decoder.TraceLog();
        EXPECT_NE(trace.find("Opening file '" + input + "' for read access: <-<-"), std::string::npos) << trace;
        EXPECT_EQ(decoder.ErrorLog(), "");
    }
}

}  // namespace
