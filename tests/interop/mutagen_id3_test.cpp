// Interoperability with mutagen: the generated differential round trips of
// tests/interop/mutagen_tags.py, with printed seeds, for ID3v2 and for APE with ID3v1.

#include <gtest/gtest.h>

#include <iostream>

#include "tests/integration/testkit.h"

namespace {

// Runs one round trip of the helper over `count` seeds from 1 and expects no file to differ.
void RoundTrip(const char* command, int count) {
    it::TempDir dir;
    const std::string audio = dir.File("audio.tta");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=f=440:d=0.2", "-fflags", "+bitexact", "-map_metadata", "-1", "-c:a", "tta", audio});
    std::vector<std::string> argv = {"/usr/bin/python3", FD_SOURCE_DIR "/tests/interop/mutagen_tags.py", command, FD_HOST_PATH, audio,
                                     dir.Path(), "1", std::to_string(count)};
    for (const char* type : {"png", "jpg", "gif", "bmp"}) {
        argv.push_back(dir.File(std::string("cover.") + type));
        it::Ffmpeg({"-f", "lavfi", "-i", "color=red:s=8x8", "-frames:v", "1", argv.back()});
    }
    const it::RunResult result = it::Run(argv);
    std::cout << result.out;
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("checks: 0 files with differences"), std::string::npos) << result.err;
}

}  // namespace

TEST(MutagenId3, GeneratedRoundTrip) { RoundTrip("id3v2-roundtrip", 160); }

// What we write mutagen reads, what it writes we read, untouched items stay
// byte for byte, and the ID3v1 tag is updated within the format's limits.
TEST(MutagenApe, GeneratedRoundTrip) { RoundTrip("ape-roundtrip", 120); }
