// EBML writing: var-ints, unsigned elements, Void padding and sinks.

#include <algorithm>
#include <array>
#include <cstring>

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"

namespace EBML {
namespace {

constexpr uint64_t kMinimumCapacity = 1024;

// The shortest width; 127 takes 2, since in one byte it reads as all ones.
// 0 when the value needs more than 8 bytes.
int ShortestWidth(uint64_t value) {
    if (value == 127) return 2;
    for (int width = 1; width <= 8; ++width) {
        if (value < (uint64_t{1} << (7 * width))) return width;
    }
    return 0;
}

void PutMarked(uint64_t value, uint8_t* out, int width) {
    const uint64_t marked = value | uint64_t{1} << (7 * width);
    for (int i = 0; i < width; ++i) out[i] = static_cast<uint8_t>(marked >> (8 * (width - 1 - i)));
}

}  // namespace

int EncodeVarInt(uint64_t value, uint8_t out[8]) {
    const int width = ShortestWidth(value);
    if (width == 0) Fail();
    PutMarked(value, out, width);
    return width;
}

bool EncodeVarIntFixed(uint64_t value, uint8_t* out, int width) {
    const int shortest = ShortestWidth(value);
    if (width < 1 || width > 8 || shortest == 0 || shortest > width) return false;
    PutMarked(value, out, width);
    return true;
}

void WriteVarInt(StreamWritable& sink, uint64_t value) {
    std::array<uint8_t, 8> bytes{};
    const int width = EncodeVarInt(value, bytes.data());
    sink.Write(bytes.data(), static_cast<uint64_t>(width));
}

void WriteElement(StreamWritable& sink, uint32_t id, const void* body, uint64_t size) {
    WriteVarInt(sink, id);
    WriteVarInt(sink, size);
    sink.Write(body, size);
}

void WriteUIntElement(StreamWritable& sink, uint32_t id, uint64_t value) {
    std::array<uint8_t, 8> body{};
    int length = 1;
    while (length < 8 && (value >> (8 * length)) != 0) ++length;
    for (int i = 0; i < length; ++i) body[static_cast<size_t>(i)] = static_cast<uint8_t>(value >> (8 * (length - 1 - i)));
    WriteElement(sink, id, body.data(), static_cast<uint64_t>(length));
}

std::vector<uint8_t> BuildVoid(uint64_t size) {
    // A gap of one byte can't hold a Void; every caller avoids or accepts that.
    if (size < 2) Fail();
    StreamWritableSimple str;
    WriteVarInt(str, kVoidId);
    Check(str.Size() == 1, "str.Size() == 1");
    std::array<uint8_t, 8> field{};
    if (size >= 9) {
        EncodeVarIntFixed(size - 9, field.data(), 8);
        str.Write(field.data(), 8);
    } else {
        EncodeVarIntFixed(size - 2, field.data(), 1);
        str.Write(field.data(), 1);
    }
    std::vector<uint8_t> bytes = str.Take();
    bytes.resize(size, 0);
    return bytes;
}

void WriteVoid(StreamWritable& sink, uint64_t size) {
    if (size == 0) return;
    const std::vector<uint8_t> bytes = BuildVoid(size);
    sink.Write(bytes.data(), bytes.size());
}

void WriteVoidAt(StreamRW& stream, uint64_t position, uint64_t size) {
    if (size == 0) return;
    if (position < stream.m_range.begin || position > stream.m_range.end) Fail();
    stream.Seek(position);
    const std::vector<uint8_t> writeMe = BuildVoid(size);
    Check(writeMe.size() == size, "writeMe.size() == size");
    stream.Write(writeMe.data(), writeMe.size());
}

void StreamRW::Write(const void* data, uint64_t size) {
    WriteHere(data, size);
    const uint64_t now = Tell();
    if (now > m_range.end) m_range.end = now;
}

void StreamWritableSimple::Write(const void* data, uint64_t size) {
    if (size == 0) return;
    if (size_ + size < size_) throw OverflowError();
    const uint64_t need = size_ + size;
    if (need > bytes_.size()) {
        uint64_t capacity = std::max<uint64_t>(bytes_.size(), kMinimumCapacity);
        while (capacity < need) {
            const uint64_t doubled = capacity * 2;
            capacity = doubled < capacity ? need : doubled;
        }
        bytes_.resize(capacity);
    }
    std::memcpy(bytes_.data() + size_, data, size);
    size_ = need;
}

std::vector<uint8_t> StreamWritableSimple::Take() {
    bytes_.resize(size_);
    size_ = 0;
    return std::move(bytes_);
}

}  // namespace EBML
