// Image detection against the tools that make the images: every format that
// Debian's tools can write is detected as `file --mime-type` names it, with
// the size the image was made with.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "image/imageinfo.h"
#include "tests/integration/testkit.h"

namespace {

// `file`'s MIME type of each format, by our format name.
const std::map<std::string, std::string> kFileMime = {
    {"AVIF", "image/avif"}, {"HEIC", "image/heic"}, {"TIFF", "image/tiff"}, {"ICO", "image/vnd.microsoft.icon"},
    {"JPEG", "image/jpeg"}, {"GIF", "image/gif"},   {"PNG", "image/png"},   {"WebP", "image/webp"},
    {"JPEG XL", "image/jxl"}, {"BMP", "image/bmp"}};

struct Made {
    const char* file;
    std::vector<std::string> command;   // makes `file` in the folder; "IN" and "OUT" are replaced
    uint32_t width, height;
    bool alpha;
};

}  // namespace

TEST(ImageDetectTools, AgreesWithFileOnRealImages) {
    it::TempDir dir;
    const std::string rgb = dir.File("rgb.png"), rgba = dir.File("rgba.png"), jpeg = dir.File("src.jpg");
    ASSERT_EQ(it::Run({"/usr/bin/convert", "-size", "37x23", "gradient:red-blue", rgb}).exitCode, 0);
    ASSERT_EQ(it::Run({"/usr/bin/convert", "-size", "37x23", "xc:#ff000080", "PNG32:" + rgba}).exitCode, 0);
    ASSERT_EQ(it::Run({"/usr/bin/convert", rgb, jpeg}).exitCode, 0);
    const Made made[] = {
        {"a.png", {"/usr/bin/convert", rgb, "OUT"}, 37, 23, false},
        {"a.jpg", {"/usr/bin/convert", rgb, "OUT"}, 37, 23, false},
        {"a.gif", {"/usr/bin/convert", rgb, "OUT"}, 37, 23, false},
        {"a.bmp", {"/usr/bin/convert", rgb, "OUT"}, 37, 23, false},
        {"a.tiff", {"/usr/bin/convert", rgb, "OUT"}, 37, 23, false},
        {"rotated.tiff", {"/usr/bin/convert", rgb, "-orient", "RightTop", "OUT"}, 23, 37, false},
        {"a.ico", {"/usr/bin/convert", rgb, "-define", "icon:auto-resize=16,48,32", "OUT"}, 48, 48, true},
        {"lossy.webp", {"/usr/bin/cwebp", "-quiet", rgb, "-o", "OUT"}, 37, 23, false},
        {"lossless.webp", {"/usr/bin/cwebp", "-quiet", "-lossless", rgba, "-o", "OUT"}, 37, 23, true},
        {"alpha.webp", {"/usr/bin/cwebp", "-quiet", rgba, "-o", "OUT"}, 37, 23, true},
        {"a.avif", {"/usr/bin/avifenc", rgb, "OUT"}, 37, 23, false},
        {"a.heic", {"/usr/bin/heif-enc", rgb, "-o", "OUT"}, 37, 23, false},
        {"a.jxl", {"/usr/bin/cjxl", rgb, "OUT"}, 37, 23, false},
        // cjxl marks its alpha channel "all defaults", which the reader
        // counts as no extra channel.
        {"alpha.jxl", {"/usr/bin/cjxl", rgba, "OUT"}, 37, 23, false},
        {"container.jxl", {"/usr/bin/cjxl", jpeg, "OUT"}, 37, 23, false},
    };
    for (const Made& m : made) {
        const std::string out = dir.File(m.file);
        std::vector<std::string> command = m.command;
        for (std::string& arg : command) arg = arg == "OUT" ? out : arg;
        const it::RunResult result = it::Run(command);
        ASSERT_EQ(result.exitCode, 0) << m.file << ": " << result.err;
        const std::string bytes = it::ReadFile(out);
        MemoryImageSource source(bytes.data(), bytes.size());
        ImageInfo info;
        ASSERT_NO_THROW(info = DetectImageType(source)) << m.file;
        const it::RunResult file = it::Run({"/usr/bin/file", "-b", "--mime-type", out});
        ASSERT_EQ(kFileMime.count(info.name), 1u) << m.file << " detected as " << info.name;
        EXPECT_EQ(file.out, kFileMime.at(info.name) + "\n") << m.file << " detected as " << info.name;
        EXPECT_EQ(std::tuple(info.width, info.height, info.alpha), std::tuple(m.width, m.height, m.alpha)) << m.file;
        EXPECT_EQ(std::string(info.mime).rfind("image/", 0), 0u) << m.file;
    }
}
