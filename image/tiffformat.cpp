// TIFF: the first directory's size, samples and orientation, in the file's
// own byte order.

#include <array>
#include <utility>

#include "image/imagereaders.h"
#include "image/imagestreams.h"
#include "transport/exceptions.h"

namespace imagedetect {
namespace {

constexpr uint16_t kTiffMagic = 42;
constexpr uint16_t kShort = 3;
constexpr uint16_t kLong = 4;

class TiffReader {
public:
    TiffReader(ImageSource& source, bool bigEndian) : source_(source), bigEndian_(bigEndian) {}
    uint16_t U16() { return bigEndian_ ? ReadU16BE(source_) : ReadU16LE(source_); }
    uint32_t U32() { return bigEndian_ ? ReadU32BE(source_) : ReadU32LE(source_); }
    // The 4-byte value field: two shorts, or one long with w = 0.
    std::pair<uint32_t, uint32_t> Value(uint16_t type, uint32_t count) {
        if (type == kShort && count <= 2) {
            const uint32_t v = U16();
            return {v, U16()};
        }
        return {U32(), 0};
    }
    ImageSource& Source() { return source_; }

private:
    ImageSource& source_;
    bool bigEndian_;
};

}  // namespace

void ReadTiff(ImageSource& source, bool bigEndian, ImageInfo& info) {
    if (!source.seekable()) throw Qel::invalid_input();
    TiffReader tiff(source, bigEndian);
    if (tiff.U16() != kTiffMagic) throw Qel::invalid_input();
    const uint32_t directory = tiff.U32();
    if (directory < 8) throw Qel::invalid_input();
    source.seek(directory);
    const uint16_t entries = tiff.U16();
    uint32_t orientation = 1, samplesOffset = 0, samplesCount = 0;
    for (uint16_t i = 0; i < entries; ++i) {
        const uint16_t tag = tiff.U16();
        const uint16_t type = tiff.U16();
        const uint32_t count = tiff.U32();
        const auto [v, w] = tiff.Value(type, count);
        const bool single = count == 1;
        if ((tag == 256 || tag == 257) && (type == kShort || type == kLong) && single) {
            (tag == 256 ? info.width : info.height) = v;
        } else if (tag == 258) {
            if (count > 3) info.alpha = true;
            if (type == kShort && count < 3) info.depth = v + w;
            if (type == kShort && count >= 3) {
                samplesOffset = v;
                samplesCount = count;
            }
        } else if (tag == 338 && count >= 1) {
            info.alpha = true;   // extra samples: alpha, associated or not
        } else if (tag == 262 && type == kShort && single && v == 4) {
            info.alpha = true;
        } else if (tag == 274 && type == kShort && single) {
            orientation = v;
        }
    }
    if (samplesOffset != 0 && samplesCount != 0) {
        source.seek(samplesOffset);
        uint32_t depth = 0;
        for (uint32_t i = 0; i < samplesCount; ++i) depth += tiff.U16();
        info.depth = depth;
    }
    if (orientation >= 5 && orientation <= 8) std::swap(info.width, info.height);
}

}  // namespace imagedetect
