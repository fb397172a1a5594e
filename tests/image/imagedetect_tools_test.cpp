// Image detection against the tools that make the images: every format that
// Debian's tools can write is detected as `file --mime-type` names it, with
// the size the image was made with.

#include <gtest/gtest.h>

#include <map>
#include <sstream>
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

// Which independent reader judges alpha and bits per pixel.
enum class Oracle { None, Identify, HeifInfo, JxlInfo };

struct Made {
    const char* file;
    std::vector<std::string> command;   // makes `file` in the folder; "OUT" is replaced
    uint32_t width, height;
    bool alpha;
    Oracle oracle = Oracle::None;
};

// (bits per pixel, alpha) as the oracle reads `path`.
std::tuple<uint32_t, bool> Judge(Oracle oracle, const std::string& path) {
    static const std::map<std::string, uint32_t> kChannels = {
        {"gray", 1}, {"graya", 2}, {"srgb", 3}, {"srgba", 4}, {"Grayscale", 1}, {"RGB", 3}, {"RGBA", 4}};
    if (oracle == Oracle::Identify) {
        std::istringstream words(it::Run({"/usr/bin/identify", "-format", "%z %[channels] %A", path + "[0]"}).out);
        uint32_t depth = 0;
        std::string channels, alpha;
        words >> depth >> channels >> alpha;
        return {depth * kChannels.at(channels), alpha != "False" && alpha != "Undefined"};
    }
    if (oracle == Oracle::HeifInfo) {
        // identify tells the depth of a channel here, but misses the alpha plane.
        const bool alpha = it::Run({"/usr/bin/heif-info", path}).out.find("alpha channel: yes") != std::string::npos;
        const uint32_t channelDepth = static_cast<uint32_t>(std::stoul(it::Run({"/usr/bin/identify", "-format", "%z", path}).out));
        return {channelDepth * (alpha ? 4 : 3), alpha};
    }
    // "JPEG XL image, 37x23, lossy, 8-bit RGBA"
    const std::string out = it::Run({"/usr/bin/jxlinfo", path}).out;
    const size_t bit = out.find("-bit ");
    const uint32_t depth = static_cast<uint32_t>(std::stoul(out.substr(out.rfind(' ', bit) + 1)));
    const std::string channels = out.substr(bit + 5, out.find('\n') - bit - 5);
    return {depth * kChannels.at(channels), channels == "RGBA"};
}

}  // namespace

TEST(ImageDetectTools, AgreesWithFileOnRealImages) {
    it::TempDir dir;
    const std::string rgb = dir.File("rgb.png"), rgba = dir.File("rgba.png"), jpeg = dir.File("src.jpg");
    const std::string gray16 = dir.File("gray16.png");
    ASSERT_EQ(it::Run({"/usr/bin/convert", "-size", "37x23", "gradient:red-blue", rgb}).exitCode, 0);
    ASSERT_EQ(it::Run({"/usr/bin/convert", "-size", "37x23", "xc:#ff000080", "PNG32:" + rgba}).exitCode, 0);
    ASSERT_EQ(it::Run({"/usr/bin/convert", "-size", "37x23", "gradient:", "-depth", "16", gray16}).exitCode, 0);
    ASSERT_EQ(it::Run({"/usr/bin/convert", rgb, jpeg}).exitCode, 0);
    const Made made[] = {
        {"a.png", {"/usr/bin/convert", rgb, "OUT"}, 37, 23, false},
        {"a.jpg", {"/usr/bin/convert", rgb, "OUT"}, 37, 23, false},
        {"a.gif", {"/usr/bin/convert", rgb, "OUT"}, 37, 23, false, Oracle::Identify},
        // Its palette's first colour is 0x21, the byte that starts an extension.
        {"first21.gif", {"/usr/bin/convert", "-size", "37x23", "xc:#21FFFF", "OUT"}, 37, 23, false, Oracle::Identify},
        {"clear.gif", {"/usr/bin/convert", "-size", "37x23", "xc:none", "-fill", "red", "-draw", "point 3,3", "OUT"}, 37,
         23, true, Oracle::Identify},
        {"progressive.jpg", {"/usr/bin/convert", rgb, "-interlace", "Plane", "OUT"}, 37, 23, false, Oracle::Identify},
        {"palette.png", {"/usr/bin/convert", "-size", "37x23", "xc:none", "-fill", "red", "-draw", "point 3,3", "PNG8:OUT"},
         37, 23, true},
        {"grayalpha.png", {"/usr/bin/convert", rgba, "-type", "GrayscaleAlpha", "OUT"}, 37, 23, true, Oracle::Identify},
        {"a.bmp", {"/usr/bin/convert", rgb, "OUT"}, 37, 23, false, Oracle::Identify},
        {"core.bmp", {"/usr/bin/convert", rgb, "BMP2:OUT"}, 37, 23, false, Oracle::Identify},
        {"a32.bmp", {"/usr/bin/convert", rgba, "BMP3:OUT"}, 37, 23, false, Oracle::Identify},
        {"alpha.bmp", {"/usr/bin/convert", rgba, "OUT"}, 37, 23, true, Oracle::Identify},
        {"a.tiff", {"/usr/bin/convert", rgb, "OUT"}, 37, 23, false, Oracle::Identify},
        {"grayalpha.tiff", {"/usr/bin/convert", rgba, "-type", "GrayscaleAlpha", "OUT"}, 37, 23, true, Oracle::Identify},
        {"rotated.tiff", {"/usr/bin/convert", rgb, "-define", "tiff:endian=msb", "-orient", "RightTop", "OUT"}, 23, 37, false},
        {"a.ico", {"/usr/bin/convert", rgb, "-define", "icon:auto-resize=16,48,32", "OUT"}, 48, 48, true},
        {"256.ico", {"/usr/bin/convert", rgb, "-define", "icon:auto-resize=32,256", "OUT"}, 256, 256, true},
        {"lossy.webp", {"/usr/bin/cwebp", "-quiet", rgb, "-o", "OUT"}, 37, 23, false},
        {"lossless.webp", {"/usr/bin/cwebp", "-quiet", "-lossless", rgba, "-o", "OUT"}, 37, 23, true},
        {"alpha.webp", {"/usr/bin/cwebp", "-quiet", rgba, "-o", "OUT"}, 37, 23, true},
        {"a.avif", {"/usr/bin/avifenc", rgb, "OUT"}, 37, 23, false, Oracle::HeifInfo},
        {"alpha.avif", {"/usr/bin/avifenc", rgba, "OUT"}, 37, 23, true, Oracle::HeifInfo},
        {"a.heic", {"/usr/bin/heif-enc", rgb, "-o", "OUT"}, 37, 23, false, Oracle::HeifInfo},
        // A thumbnail of 8x4 is an item of its own: the primary one counts.
        {"thumb.heic", {"/usr/bin/heif-enc", "-t", "8", rgba, "-o", "OUT"}, 37, 23, true, Oracle::HeifInfo},
        {"a.jxl", {"/usr/bin/cjxl", rgb, "OUT"}, 37, 23, false, Oracle::JxlInfo},
        {"alpha.jxl", {"/usr/bin/cjxl", rgba, "OUT"}, 37, 23, true, Oracle::JxlInfo},
        {"gray16.jxl", {"/usr/bin/cjxl", gray16, "OUT"}, 37, 23, false, Oracle::JxlInfo},
        {"container.jxl", {"/usr/bin/cjxl", jpeg, "OUT"}, 37, 23, false},
    };
    for (const Made& m : made) {
        const std::string out = dir.File(m.file);
        std::vector<std::string> command = m.command;
        for (std::string& arg : command) {
            if (arg.size() >= 3 && arg.compare(arg.size() - 3, 3, "OUT") == 0) arg = arg.substr(0, arg.size() - 3) + out;
        }
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
        EXPECT_EQ(std::string(info.mime), kFileMime.at(info.name) == "image/vnd.microsoft.icon" ? "image/x-icon" : kFileMime.at(info.name)) << m.file;
        if (m.oracle == Oracle::None) continue;
        const auto [depth, alpha] = Judge(m.oracle, out);
        EXPECT_EQ(info.alpha, alpha) << m.file << ": the independent reader's alpha";
        // GIF's palette indices count 8 bits however deep the palette is.
        if (info.name == std::string("GIF")) continue;
        EXPECT_EQ(info.depth, depth) << m.file << ": the independent reader's depth";
    }
}
