// What a failed Open tells the host's error log, and that it tells it
// promptly; the records Open refuses, and its trace.

#include <gtest/gtest.h>

#include <filesystem>

#include "plugindriver.h"

namespace {

using Clock = std::chrono::steady_clock;
// Well below the five seconds that a parse waits for a silent error stream.
constexpr auto kPromptly = std::chrono::seconds(3);
const std::string kStartLabel = "  [clDecoder_ffmpeg::SetPosition]\r\n";

std::string FailedOpenLog(it::TestDecoder& decoder, const std::string& path) {
    const auto start = Clock::now();
    EXPECT_FALSE(decoder.Open(path, kOpenWantTags | kOpenWantInfo)) << path;
    EXPECT_LT(Clock::now() - start, kPromptly) << path;
    return decoder.ErrorLog();
}

TEST(OpenErrors, NotAudioUnreachableUrlAndMissingWorker) {
    it::TempDir dir;
    // A picture (read, but no audio) and a URL nobody answers. A missing file
    // and text: the fdhost table.
    it::Ffmpeg({"-f", "lavfi", "-i", "color=c=blue:s=16x16", "-frames:v", "1", dir.File("cover.png")});
    for (const std::string& path : {dir.File("cover.png"), std::string("http://127.0.0.1:9/none.mp3")}) {
        it::TestDecoder decoder;
        EXPECT_EQ(FailedOpenLog(decoder, path), "File could not be decoded" + kStartLabel);
    }
    EXPECT_EQ(it::ChildrenAfter(0), 0);

    // The plug-in in a folder layout of its own, with no worker one folder up.
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
    // Beside a worker, the same copy decodes and traces the open.
    std::filesystem::create_symlink(FD_FFMPEG_PATH, dir.File("lib/ffmpeg-lgpl"));
    it::TestDecoder working(library);
    EXPECT_TRUE(working.Open(input, 0)) << working.ErrorLog();
    EXPECT_NE(working.TraceLog().find("Opening file '" + input + "' for read access: <-<-"), std::string::npos)
        << working.TraceLog();
    EXPECT_EQ(working.ErrorLog(), "");
}

TEST(OpenErrors, RefusedRecords) {
    it::TestDecoder external;
    DecoderOpenInfo info{};
    info.path = u"/nowhere.flac";
    info.flags = kOpenExternalPackets;
    EXPECT_FALSE(external.OpenRecord(info));
    EXPECT_EQ(external.ErrorLog(), "Error cannot decode external-packet data.  [clDecoder_ffmpeg::Open]\r\n");

    it::TestDecoder noPath;
    DecoderOpenInfo empty{};
    empty.flags = kOpenWantTags;
    EXPECT_FALSE(noPath.OpenRecord(empty));
    EXPECT_EQ(noPath.ErrorLog(), "Attempting to open null file path.  [clDecoder_ffmpeg::Open]\r\n");
    EXPECT_NE(noPath.TraceLog().find("Opening file '' for read access: *** Error: Attempting"), std::string::npos)
        << noPath.TraceLog();
}

}  // namespace
