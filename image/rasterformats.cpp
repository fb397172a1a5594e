// The readers of the simple raster formats: GIF, JPEG, PNG, WebP, BMP, ICO.

#include <array>
#include <cstring>

#include "image/imagereaders.h"
#include "image/imagestreams.h"
#include "transport/exceptions.h"
#include "transport/waitable.h"

namespace imagedetect {
namespace {

[[noreturn]] void Invalid() { throw Qel::invalid_input(); }

constexpr uint8_t kGifExtension = 0x21;
constexpr uint8_t kGifControl = 0xF9;

bool IsFrameMarker(uint8_t m) {
    return (m >= 0xC0 && m <= 0xC3) || (m >= 0xC5 && m <= 0xC7) || (m >= 0xC9 && m <= 0xCB) || (m >= 0xCD && m <= 0xCF);
}

bool IsSegmentMarker(uint8_t m) { return m == 0xC4 || m == 0xDA || m == 0xDB || (m >= 0xE0 && m <= 0xEF) || m == 0xFE; }

uint32_t PngChannels(uint8_t colourType) {
    switch (colourType) {
        case 2: return 3;
        case 4: return 2;
        case 6: return 4;
        default: return 1;
    }
}

uint32_t U16LEAt(const uint8_t* p) { return uint32_t{p[0]} | uint32_t{p[1]} << 8; }
uint32_t U24LEAt(const uint8_t* p) { return U16LEAt(p) | uint32_t{p[2]} << 16; }

}  // namespace

void ReadGif(Qel::streamIn& stream, ImageInfo& info) {
    stream.skipExact(4);
    info.width = ReadU16LE(stream);
    info.height = ReadU16LE(stream);
    if (info.width == 0 || info.height == 0) Invalid();
    const uint8_t flags = ReadU8(stream);
    stream.skipExact(2);
    // The global colour table: 2^(n+1) colours of 3 bytes.
    if (flags & 0x80) stream.skipExact(uint64_t{3} << ((flags & 7u) + 1));
    info.depth = 8;
    info.alpha = false;
    // Extensions up to the first image: a label, then sub-blocks up to an
    // empty one. The graphic control extension's first sub-block carries
    // the transparency flag.
    for (uint8_t next = ReadU8(stream); next == kGifExtension; next = ReadU8(stream)) {
        const uint8_t label = ReadU8(stream);
        bool first = true;
        for (uint8_t size = ReadU8(stream); size != 0; size = ReadU8(stream)) {
            if (first && label == kGifControl && size == 4) {
                if (ReadU8(stream) & 1) info.alpha = true;
                --size;
            }
            first = false;
            stream.skipExact(size);
        }
    }
}

void ReadJpeg(Qel::streamIn& stream, ImageInfo& info) {
    Qel::CheckAbort();
    for (;;) {
        std::array<uint8_t, 2> marker{};
        stream.readExact(marker.data(), 2);
        if (marker[0] != 0xFF) Invalid();
        const uint8_t m = marker[1];
        if (IsFrameMarker(m)) break;
        if (IsSegmentMarker(m)) {
            const uint16_t length = ReadU16BE(stream);
            if (length < 2) Invalid();
            stream.skipExact(length - 2u);
        } else if (m == 0xDD) {
            stream.skipExact(4);
        } else {
            Invalid();
        }
        Qel::CheckAbort();
    }
    if (ReadU16BE(stream) < 6) Invalid();
    const uint8_t precision = ReadU8(stream);
    info.height = ReadU16BE(stream);
    info.width = ReadU16BE(stream);
    if (info.width == 0 || info.height == 0) Invalid();
    info.depth = uint32_t{ReadU8(stream)} * precision;
    info.alpha = false;
}

void ReadPng(Qel::streamIn& stream, ImageInfo& info) {
    std::array<uint8_t, 6> signature{};
    stream.readExact(signature.data(), 6);
    if (std::memcmp(signature.data(), "NG\r\n\x1A\n", 6) != 0) Invalid();
    const uint32_t length = ReadU32BE(stream);
    std::array<char, 4> type{};
    stream.readExact(type.data(), 4);
    if (length < 10 || std::memcmp(type.data(), "IHDR", 4) != 0) Invalid();
    info.width = ReadU32BE(stream);
    info.height = ReadU32BE(stream);
    const uint8_t bitDepth = ReadU8(stream);
    const uint8_t colourType = ReadU8(stream);
    stream.skipExact(length - 6u);
    info.depth = bitDepth * PngChannels(colourType);
    info.alpha = colourType == 4 || colourType == 6;
    if (info.alpha) return;
    // Transparency of the other colour types shows as a chunk before the data;
    // a file cut short here still has what the header said.
    try {
        for (;;) {
            const uint32_t chunkLength = ReadU32BE(stream);
            stream.readExact(type.data(), 4);
            if (std::memcmp(type.data(), "tRNS", 4) == 0) {
                info.alpha = true;
                return;
            }
            if (std::memcmp(type.data(), "IDAT", 4) == 0) return;
            stream.skipExact(uint64_t{chunkLength} + 4);
        }
    } catch (const Qel::invalid_input&) {
    }
}

void ReadWebp(Qel::streamIn& stream, ImageInfo& info) {
    std::array<uint8_t, 30> h{};
    h[0] = 'R';
    h[1] = 'I';
    stream.readExact(h.data() + 2, 28);
    if (std::memcmp(h.data(), "RIFF", 4) != 0 || std::memcmp(h.data() + 8, "WEBP", 4) != 0) Invalid();
    const uint8_t* chunk = h.data() + 12;
    if (std::memcmp(chunk, "VP8 ", 4) == 0) {
        if (h[23] != 0x9D || h[24] != 0x01 || h[25] != 0x2A) Invalid();
        info.width = U16LEAt(h.data() + 26) & 0x3FFF;
        info.height = U16LEAt(h.data() + 28) & 0x3FFF;
        if (info.width == 0 || info.height == 0) Invalid();
        info.depth = 24;
        info.alpha = false;
    } else if (std::memcmp(chunk, "VP8X", 4) == 0) {
        info.alpha = (h[20] & 0x10) != 0;
        info.width = U24LEAt(h.data() + 24) + 1;
        info.height = U24LEAt(h.data() + 27) + 1;
        info.depth = info.alpha ? 32 : 24;
    } else if (std::memcmp(chunk, "VP8L", 4) == 0) {
        const uint32_t bits = uint32_t{h[21]} | uint32_t{h[22]} << 8 | uint32_t{h[23]} << 16 | uint32_t{h[24]} << 24;
        info.width = (bits & 0x3FFF) + 1;
        info.height = ((bits >> 14) & 0x3FFF) + 1;
        info.alpha = (h[24] & 0x10) != 0;
        info.depth = info.alpha ? 32 : 24;
    } else {
        Invalid();
    }
}

void ReadBmp(Qel::streamIn& stream, ImageInfo& info) {
    stream.skipExact(12);
    const uint32_t headerSize = ReadU32LE(stream);
    if (headerSize < 12) Invalid();
    if (headerSize < 40) {
        info.width = ReadU16LE(stream);
        info.height = ReadU16LE(stream);
    } else {
        info.width = ReadU32LE(stream);
        // A negative height marks rows stored top-down; the size is its magnitude.
        const uint32_t height = ReadU32LE(stream);
        info.height = height >> 31 ? 0u - height : height;
    }
    stream.skipExact(2);
    info.depth = ReadU16LE(stream);
    info.alpha = false;
    // Headers from version 3 on carry masks; a non-zero alpha mask on 32
    // bits per pixel is an alpha channel.
    constexpr uint32_t kHeaderWithAlphaMask = 56, kBitFields = 3, kAlphaBitFields = 6;
    if (headerSize < kHeaderWithAlphaMask || info.depth != 32) return;
    const uint32_t compression = ReadU32LE(stream);
    stream.skipExact(32);
    const uint32_t alphaMask = ReadU32LE(stream);
    info.alpha = alphaMask != 0 && (compression == kBitFields || compression == kAlphaBitFields);
}

void ReadIco(Qel::streamIn& stream, ImageInfo& info) {
    constexpr uint16_t kMaxEntries = 100;
    stream.skipExact(2);
    if (ReadU16LE(stream) != 1) Invalid();   // 2 would be a cursor
    const uint16_t count = ReadU16LE(stream);
    if (count == 0 || count > kMaxEntries) Invalid();
    uint32_t bestWidth = 0, bestHeight = 0, bestBits = 0;
    for (uint16_t i = 0; i < count; ++i) {
        const uint8_t widthByte = ReadU8(stream);
        const uint8_t heightByte = ReadU8(stream);
        ReadU8(stream);
        if (ReadU8(stream) != 0) Invalid();
        ReadU16LE(stream);
        const uint16_t bits = ReadU16LE(stream);
        stream.skipExact(8);
        const uint32_t width = widthByte == 0 ? 256 : widthByte;
        const uint32_t height = heightByte == 0 ? 256 : heightByte;
        // A larger but shallower entry doesn't replace the best.
        if (width >= bestWidth && height >= bestHeight && bits >= bestBits) {
            bestWidth = width;
            bestHeight = height;
            bestBits = bits;
        }
    }
    if (bestWidth == 0 || bestHeight == 0) Invalid();
    info.width = bestWidth;
    info.height = bestHeight;
    info.depth = bestBits;
    info.alpha = true;
}

}  // namespace imagedetect
