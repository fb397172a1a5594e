// EBML reading: bounded reads, var-ints, element bodies and ranges.

#include <algorithm>
#include <array>
#include <exception>

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"

namespace EBML {
namespace {

constexpr uint64_t kBinaryChunk = 0x100000;
constexpr uint64_t kMagicWindow = 1024;
constexpr uint8_t kMagicByte = 0x1A;

void CheckEnd(Stream& stream, uint64_t size) {
    const uint64_t p = stream.Tell();
    if (p + size < p) Fail();
    const uint64_t end = p + size;
    if (end < stream.m_range.begin || end > stream.m_range.end) Fail();
}

std::string ReadText(Stream& stream, uint64_t size, bool asciiOnly) {
    if (size == 0) return {};
    std::vector<uint8_t> body = ReadBinary(stream, size);
    bool afterNul = false;
    for (uint8_t byte : body) {
        if (byte == 0) {
            afterNul = true;
            continue;
        }
        if (afterNul) Fail();
        if (asciiOnly && (byte < 32 || byte > 126)) Fail();
    }
    return std::string(body.begin(), body.end());
}

}  // namespace

void Fail() { throw ParseError(); }

void BoundedRead(Stream& stream, void* buffer, uint64_t size) {
    CheckEnd(stream, size);
    stream.Read(buffer, size);
}

void BoundedSkip(Stream& stream, uint64_t size) {
    CheckEnd(stream, size);
    stream.Skip(size);
}

void BoundedSeek(StreamSeekable& stream, uint64_t position) {
    if (position < stream.m_range.begin || position > stream.m_range.end) Fail();
    stream.Seek(position);
}

uint32_t ReadElementId(Stream& stream) {
    uint8_t first = 0;
    BoundedRead(stream, &first, 1);
    int width = 1;
    if ((first & 0x80) == 0) {
        uint8_t mask = 0x80;
        while ((first & mask) == 0) {
            mask = static_cast<uint8_t>(mask >> 1);
            ++width;
            if (width > 4) Fail();
            Check(mask != 0, "mask != 0");
        }
    }
    uint32_t value = first & static_cast<uint8_t>(~(0x80u >> (width - 1)));
    std::array<uint8_t, 3> rest{};
    BoundedRead(stream, rest.data(), static_cast<uint64_t>(width - 1));
    for (int i = 0; i < width - 1; ++i) value = value << 8 | rest[static_cast<size_t>(i)];
    return value;
}

int VarIntWidth(uint8_t firstByte) {
    if (firstByte == 0) Fail();
    int width = 1;
    for (uint8_t mask = 0x80; (firstByte & mask) == 0; mask = static_cast<uint8_t>(mask >> 1)) ++width;
    return width;
}

uint64_t ReadElementSizeRest(Stream& stream, uint8_t first) {
    const int width = VarIntWidth(first);
    uint64_t value = first & static_cast<uint8_t>(~(0x80u >> (width - 1)));
    std::array<uint8_t, 7> rest{};
    BoundedRead(stream, rest.data(), static_cast<uint64_t>(width - 1));
    for (int i = 0; i < width - 1; ++i) value = value << 8 | rest[static_cast<size_t>(i)];
    return value;
}

uint64_t ReadElementSize(Stream& stream) {
    uint8_t first = 0;
    BoundedRead(stream, &first, 1);
    if (first == 0xFF) return kUnknownSize;
    return ReadElementSizeRest(stream, first);
}

uint64_t ReadUInt(Stream& stream, uint64_t size) {
    if (size < 1 || size > 8) Fail();
    std::array<uint8_t, 8> body{};
    BoundedRead(stream, body.data(), size);
    uint64_t value = 0;
    for (uint64_t i = 0; i < size; ++i) value = value << 8 | body[i];
    return value;
}

std::vector<uint8_t> ReadBinary(Stream& stream, uint64_t size) {
    std::vector<uint8_t> bytes;
    if (size == 0) return bytes;
    CheckEnd(stream, size);
    // Chunk by chunk, so that a size field larger than the file costs no
    // allocation of that size before the bytes are there.
    while (bytes.size() < size) {
        const uint64_t chunk = std::min<uint64_t>(kBinaryChunk, size - bytes.size());
        const size_t at = bytes.size();
        bytes.resize(at + chunk);
        BoundedRead(stream, bytes.data() + at, chunk);
    }
    return bytes;
}

std::string ReadAscii(Stream& stream, uint64_t size) { return ReadText(stream, size, true); }
std::string ReadUtf8(Stream& stream, uint64_t size) { return ReadText(stream, size, false); }

std::string CText(const std::string& value) { return std::string(value.c_str()); }

Range SetRange(Stream& stream, const Range& range) {
    const Range& now = stream.m_range;
    if (range.begin < now.begin || range.begin > now.end || range.end < now.begin || range.end > now.end) Fail();
    const Range previous = now;
    stream.m_range = range;
    return previous;
}

Range NarrowRange(Stream& stream, uint64_t size) {
    // An unknown size can't be narrowed to: the always-false rule of the
    // format, reachable from damaged input, so it is a parse error.
    if (size >= kUnknownSize) Fail();
    const uint64_t p = stream.Tell();
    if (p + size < p) Fail();
    try {
        return SetRange(stream, Range{p, p + size});
    } catch (const ParseError&) {
        // An element that claims more than its parent holds is clamped to the
        // parent: this is what lets truncated files be read.
        return SetRange(stream, Range{p, stream.m_range.end});
    }
}

void SeekToEbmlMagic(StreamSeekable& stream) {
    if (stream.m_range.begin != 0) Fail();
    stream.Seek(0);
    std::array<uint8_t, kMagicWindow> window{};
    for (;;) {
        const uint64_t position = stream.Tell();
        const uint64_t left = position < stream.m_range.end ? stream.m_range.end - position : 0;
        const uint64_t n = std::min(kMagicWindow, left);
        if (n == 0) Fail();
        BoundedRead(stream, window.data(), n);
        const auto found = std::find(window.begin(), window.begin() + static_cast<ptrdiff_t>(n), kMagicByte);
        if (found != window.begin() + static_cast<ptrdiff_t>(n)) {
            stream.Seek(position + static_cast<uint64_t>(found - window.begin()));
            return;
        }
    }
}

void ScopedRange::Narrow(Stream& stream, uint64_t size) {
    Check(m_stream == nullptr, "m_stream == nullptr");
    r = NarrowRange(stream, size);
    m_stream = &stream;
    exceptionsAtStart_ = std::uncaught_exceptions();
}

ScopedRange::~ScopedRange() noexcept(false) {
    if (m_stream == nullptr) return;
    const Range now = m_stream->m_range;
    m_stream->m_range = r;
    // Only raised when no other exception is on its way out.
    if (std::uncaught_exceptions() != exceptionsAtStart_) return;
    Check(r.begin <= now.begin, "r.begin <= m_range.begin");
    Check(r.end >= now.end, "r.end >= m_range.end");
}

StreamMem::StreamMem(const void* bytes, uint64_t size) : data(static_cast<const uint8_t*>(bytes)) {
    m_range = Range{0, size};
    if (size == 0) data = nullptr;
}

void StreamMem::Read(void* buffer, uint64_t size) {
    if (size == 0) return;
    std::copy_n(data + pos, size, static_cast<uint8_t*>(buffer));
    pos += size;
}

void StreamMem::Skip(uint64_t size) {
    CheckEnd(*this, size);
    pos += size;
}

}  // namespace EBML
