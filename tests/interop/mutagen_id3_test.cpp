// Interoperability with mutagen for ID3v2: the generated differential round
// trip of tests/interop/mutagen_tags.py ("id3v2-roundtrip"), with printed seeds.

#include <gtest/gtest.h>

#include <iostream>

#include "tests/integration/testkit.h"

namespace {

constexpr int kFirstSeed = 1;
constexpr int kFiles = 160;

}  // namespace

TEST(MutagenId3, GeneratedRoundTrip) {
    it::TempDir dir;
    const std::string audio = dir.File("audio.tta");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=f=440:d=0.2", "-fflags", "+bitexact", "-map_metadata", "-1", "-c:a", "tta",
                audio});
    std::vector<std::string> argv = {"/usr/bin/python3", FD_SOURCE_DIR "/tests/interop/mutagen_tags.py",
                                     "id3v2-roundtrip", FD_HOST_PATH, audio, dir.Path(), std::to_string(kFirstSeed),
                                     std::to_string(kFiles)};
    for (const char* type : {"png", "jpg", "gif", "bmp"}) {
        argv.push_back(dir.File(std::string("cover.") + type));
        it::Ffmpeg({"-f", "lavfi", "-i", "color=red:s=8x8", "-frames:v", "1", argv.back()});
    }
    const it::RunResult result = it::Run(argv);
    std::cout << result.out;
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("checks: 0 files with differences"), std::string::npos) << result.err;
}
