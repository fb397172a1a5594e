// The dispatcher: the first two bytes pick the reader.

#include <array>
#include <cstring>

#include "image/imageinfo.h"
#include "image/imagereaders.h"
#include "image/imagestreams.h"
#include "transport/exceptions.h"

namespace {

struct FormatNames {
    const char* name;
    const char* extension;
    const char* mime;
};

constexpr FormatNames kAvif = {"AVIF", "avif", "image/avif"};
constexpr FormatNames kHeic = {"HEIC", "heic", "image/heic"};
constexpr FormatNames kTiff = {"TIFF", "tiff", "image/tiff"};
constexpr FormatNames kIco = {"ICO", "ico", "image/x-icon"};
constexpr FormatNames kJpeg = {"JPEG", "jpg", "image/jpeg"};
constexpr FormatNames kGif = {"GIF", "gif", "image/gif"};
constexpr FormatNames kPng = {"PNG", "png", "image/png"};
constexpr FormatNames kWebp = {"WebP", "webp", "image/webp"};
constexpr FormatNames kJxl = {"JPEG XL", "jxl", "image/jxl"};
constexpr FormatNames kBmp = {"BMP", "bmp", "image/bmp"};

ImageInfo Named(ImageInfo info, const FormatNames& names) {
    info.name = names.name;
    info.extension = names.extension;
    info.mime = names.mime;
    return info;
}

// Files that begin with two zero bytes: JPEG XL container, ISO, or ICO.
ImageInfo DetectZeroStart(ImageSource& stream) {
    std::array<uint8_t, 8> head{};
    stream.readExact(head.data() + 2, 6);
    imagedetect::PrefixReader prefix(head.data(), head.size(), stream);
    ImageInfo info;
    if (std::memcmp(head.data() + 4, "JXL ", 4) == 0) {
        imagedetect::ReadJxlContainer(prefix, info);
        return Named(info, kJxl);
    }
    if (std::memcmp(head.data() + 4, "ftyp", 4) == 0) {
        const bool avif = imagedetect::ReadIsoImage(prefix, info);
        return Named(info, avif ? kAvif : kHeic);
    }
    imagedetect::ReadIco(prefix, info);
    return Named(info, kIco);
}

}  // namespace

ImageInfo DetectImageType(ImageSource& stream) {
    if (stream.seekable()) stream.seek(0);
    std::array<uint8_t, 2> b{};
    stream.readExact(b.data(), 2);
    ImageInfo info;
    const auto is = [&](uint8_t first, uint8_t second) { return b[0] == first && b[1] == second; };
    if (is('G', 'I')) {
        imagedetect::ReadGif(stream, info);
        return Named(info, kGif);
    }
    if (is(0xFF, 0xD8)) {
        imagedetect::ReadJpeg(stream, info);
        return Named(info, kJpeg);
    }
    if (is(0xFF, 0x0A)) {
        imagedetect::PrefixReader prefix(b.data(), b.size(), stream);
        imagedetect::ReadJxlCodestream(prefix, info);
        return Named(info, kJxl);
    }
    if (is(0x89, 'P')) {
        imagedetect::ReadPng(stream, info);
        return Named(info, kPng);
    }
    if (is('R', 'I')) {
        imagedetect::ReadWebp(stream, info);
        return Named(info, kWebp);
    }
    if (is('B', 'M')) {
        imagedetect::ReadBmp(stream, info);
        return Named(info, kBmp);
    }
    if (is('M', 'M') || is('I', 'I')) {
        imagedetect::ReadTiff(stream, b[0] == 'M', info);
        return Named(info, kTiff);
    }
    if (is(0, 0)) return DetectZeroStart(stream);
    throw Qel::invalid_input();
}
