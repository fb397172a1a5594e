// JPEG XL: the size header and image metadata at the start of the code
// stream, bare or inside the container's "jxlc" / "jxlp" boxes.

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include "image/imagereaders.h"
#include "image/imagestreams.h"
#include "transport/exceptions.h"
#include "transport/waitable.h"

namespace imagedetect {
namespace {

using Distribution = std::array<uint32_t, 4>;
using SkipTable = std::array<uint32_t, 4>;

constexpr uint32_t kConstant = 0x80000000u;

// Bits from the least significant bit of each byte upward.
class BitReader {
public:
    explicit BitReader(Qel::streamIn& stream) : stream_(stream) {}

    // n bits, the first one lowest; above 32 the upper bits are lost.
    uint32_t Read(uint32_t n) {
        uint32_t value = 0;
        for (uint32_t i = 0; i < n; ++i) {
            if (left_ == 0) {
                stream_.readExact(&byte_, 1);
                left_ = 8;
            }
            const uint32_t bit = byte_ & 1u;
            byte_ = static_cast<uint8_t>(byte_ >> 1);
            --left_;
            if (i < 32) value |= bit << i;
        }
        return value;
    }
    uint32_t ReadU32(const Distribution& distribution) {
        const uint32_t word = distribution[Read(2)];
        if (word & kConstant) return word & ~kConstant;
        return (word & 0xFFFFFFu) + Read(word >> 24);
    }
    void Skip(const SkipTable& table) { Read(table[Read(2)]); }

private:
    Qel::streamIn& stream_;
    uint8_t byte_ = 0;
    int left_ = 0;
};

constexpr uint32_t C(uint32_t value) { return kConstant | value; }

constexpr Distribution kLargeDimension = {0x09000001, 0x0D000001, 0x12000001, 0x1E000001};
constexpr std::array<std::pair<uint32_t, uint32_t>, 8> kRatios = {
    {{1, 1}, {1, 1}, {12, 10}, {4, 3}, {3, 2}, {16, 9}, {5, 4}, {2, 1}}};

uint32_t ReadDimension(BitReader& bits, bool small) {
    return small ? bits.Read(5) * 8 + 8 : bits.ReadU32(kLargeDimension);
}

std::pair<uint32_t, uint32_t> ReadSizeHeader(BitReader& bits) {
    const bool small = bits.Read(1) != 0;
    const uint32_t height = ReadDimension(bits, small);
    const uint32_t ratio = bits.Read(3);
    if (ratio == 0) return {ReadDimension(bits, small), height};
    // In 64 bits: a height of 2^30 times 16 would wrap to a width of 0.
    return {static_cast<uint32_t>(uint64_t{height} * kRatios[ratio].first / kRatios[ratio].second), height};
}

uint32_t ReadBitDepth(BitReader& bits) {
    if (bits.Read(1) != 0) {
        const uint32_t depth = bits.ReadU32({C(32), C(16), C(24), 0x06000001});
        bits.Read(4);
        return depth;
    }
    return bits.ReadU32({C(8), C(10), C(12), 0x06000001});
}

void SkipExtraFields(BitReader& bits, ImageInfo& info) {
    if (bits.Read(3) > 3) std::swap(info.width, info.height);
    if (bits.Read(1)) ReadSizeHeader(bits);   // intrinsic size, not used
    if (bits.Read(1)) {                        // preview
        const SkipTable table = bits.Read(1) ? SkipTable{0, 0, 5, 9} : SkipTable{6, 8, 10, 12};
        bits.Skip(table);
        if (bits.Read(3) == 0) bits.Skip(table);
    }
    if (bits.Read(1)) {   // animation
        bits.Skip({0, 0, 10, 30});
        bits.Skip({0, 0, 8, 10});
        bits.Skip({0, 0, 16, 32});
        bits.Read(1);
    }
}

void ReadExtraChannel(BitReader& bits, ImageInfo& info) {
    // All defaults: an alpha channel of 8 bits.
    if (bits.Read(1) != 0) {
        info.depth += 8;
        info.alpha = true;
        return;
    }
    const uint32_t type = bits.ReadU32({C(0), C(1), 0x04000002, 0x06000012});
    const uint32_t depth = ReadBitDepth(bits);
    bits.Skip({0, 0, 0, 3});
    const uint32_t nameLength = bits.ReadU32({C(0), 0x04000000, 0x05000010, 0x0A000030});
    for (uint32_t i = 0; i < nameLength; ++i) bits.Read(8);
    if (type == 0) bits.Read(1);
    if (type == 2) bits.Read(64);
    if (type == 5) bits.Skip({0, 2, 4, 8});
    info.depth += depth;
    if (type == 0) info.alpha = true;
}

// Hands out the code stream's bytes from the container's boxes.
class JxlBoxReader : public Qel::streamIn {
public:
    explicit JxlBoxReader(Qel::streamIn& below) : below_(below) {}

    size_t read(void* buffer, size_t count) override {
        auto* out = static_cast<uint8_t*>(buffer);
        size_t done = 0;
        while (done < count) {
            Qel::CheckAbort();
            if (left_ == 0) NextBox();
            if (left_ == kToTheEnd) {
                const size_t got = below_.read(out + done, count - done);
                if (got == 0) break;
                done += got;
                continue;
            }
            const size_t take = static_cast<size_t>(std::min<uint64_t>(count - done, left_));
            below_.readExact(out + done, take);
            left_ -= take;
            done += take;
        }
        return done;
    }

private:
    void NextBox() {
        for (;;) {
            Qel::CheckAbort();
            const BoxHeader box = ReadBoxHeader(below_);
            if (IsType(box, "jxlc")) {
                left_ = box.payload;
            } else if (IsType(box, "jxlp")) {
                if (box.payload < 4) throw Qel::invalid_input();
                below_.skipExact(4);
                left_ = box.payload - 4;
            } else {
                if (box.payload == kToTheEnd) throw Qel::invalid_input();
                below_.skipExact(box.payload);
                continue;
            }
            if (left_ != 0) return;
        }
    }

    Qel::streamIn& below_;
    uint64_t left_ = 0;
};

}  // namespace

void ReadJxlCodestream(Qel::streamIn& stream, ImageInfo& info) {
    std::array<uint8_t, 2> signature{};
    stream.readExact(signature.data(), 2);
    if (signature[0] != 0xFF || signature[1] != 0x0A) throw Qel::invalid_input();
    info = ImageInfo{};
    BitReader bits(stream);
    std::tie(info.width, info.height) = ReadSizeHeader(bits);
    info.depth = 24;
    if (bits.Read(1)) return;   // all defaults
    if (bits.Read(1)) SkipExtraFields(bits, info);
    const uint32_t bitDepth = ReadBitDepth(bits);
    bits.Read(1);
    info.depth = 0;
    const uint32_t extraChannels = bits.ReadU32({C(0), C(1), 0x04000002, 0x0C000001});
    for (uint32_t i = 0; i < extraChannels; ++i) ReadExtraChannel(bits, info);
    // The colour channels: three, or one when the colour encoding is grey.
    // A stream that ends before the colour encoding counts three.
    uint32_t colours = 3;
    try {
        bits.Read(1);              // XYB encoded
        if (bits.Read(1) == 0) {   // not the default encoding
            bits.Read(1);          // wants an ICC profile
            constexpr uint32_t kGrey = 1;
            if (bits.ReadU32({C(0), C(1), 0x04000002, 0x06000012}) == kGrey) colours = 1;
        }
    } catch (const Qel::invalid_input&) {
        colours = 3;
    }
    info.depth += bitDepth * colours;
}

void ReadJxlContainer(Qel::streamIn& stream, ImageInfo& info) {
    JxlBoxReader codestream(stream);
    ReadJxlCodestream(codestream, info);
}

}  // namespace imagedetect
