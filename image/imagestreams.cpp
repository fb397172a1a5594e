#include "image/imagestreams.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "image/imageinfo.h"
#include "transport/exceptions.h"
#include "transport/waitable.h"

void ImageSource::seek(uint64_t) { throw Qel::invalid_input(); }

size_t MemoryImageSource::read(void* buffer, size_t count) {
    const size_t take = std::min(count, size_ - position_);
    if (take == 0) return 0;
    std::memcpy(buffer, data_ + position_, take);
    position_ += take;
    return take;
}

uint64_t MemoryImageSource::skip(uint64_t count) {
    const uint64_t take = std::min<uint64_t>(count, size_ - position_);
    position_ += static_cast<size_t>(take);
    return take;
}

void MemoryImageSource::seek(uint64_t position) {
    if (position > size_) throw Qel::invalid_input();
    position_ = static_cast<size_t>(position);
}

namespace imagedetect {

size_t PrefixReader::read(void* buffer, size_t count) {
    auto* out = static_cast<uint8_t*>(buffer);
    size_t done = 0;
    while (done < count) {
        Qel::CheckAbort();
        if (used_ < count_) {
            const size_t take = std::min(count - done, count_ - used_);
            std::memcpy(out + done, bytes_ + used_, take);
            used_ += take;
            done += take;
            continue;
        }
        const size_t got = below_.read(out + done, count - done);
        if (got == 0) break;
        done += got;
    }
    return done;
}

size_t BoundedReader::read(void* buffer, size_t count) {
    const size_t take = static_cast<size_t>(std::min<uint64_t>(count, budget_));
    const size_t got = below_.read(buffer, take);
    budget_ -= got;
    return got;
}

void BoundedReader::readExact(void* buffer, size_t count) {
    if (count > budget_) throw Qel::invalid_input();
    below_.readExact(buffer, count);
    budget_ -= count;
}

uint64_t BoundedReader::skip(uint64_t count) {
    const uint64_t got = below_.skip(std::min(count, budget_));
    budget_ -= got;
    return got;
}

void BoundedReader::skipExact(uint64_t count) {
    if (count > budget_) throw Qel::invalid_input();
    below_.skipExact(count);
    budget_ -= count;
}

uint64_t BoundedReader::Enter(uint64_t childSize) {
    if (childSize > budget_) throw Qel::invalid_input();
    const uint64_t rest = budget_ - childSize;
    budget_ = childSize;
    return rest;
}

void BoundedReader::Leave(uint64_t parentRest) {
    skipExact(budget_);
    budget_ = parentRest;
}

BoxHeader ReadBoxHeader(Qel::streamIn& stream) {
    BoxHeader box;
    const uint32_t size = ReadU32BE(stream);
    stream.readExact(box.type, 4);
    box.headerLength = 8;
    if (size == 0) {
        box.payload = kToTheEnd;
    } else if (size == 1) {
        const uint64_t large = ReadU64BE(stream);
        if (large < 16) throw Qel::invalid_input();
        box.payload = large - 16;
        box.headerLength = 16;
    } else if (size < 8) {
        throw Qel::invalid_input();
    } else {
        box.payload = size - 8;
    }
    return box;
}

bool IsType(const BoxHeader& box, const char* type) { return std::memcmp(box.type, type, 4) == 0; }

uint8_t ReadU8(Qel::streamIn& stream) {
    uint8_t byte = 0;
    stream.readExact(&byte, 1);
    return byte;
}

uint16_t ReadU16BE(Qel::streamIn& stream) {
    std::array<uint8_t, 2> b{};
    stream.readExact(b.data(), 2);
    return static_cast<uint16_t>(b[0] << 8 | b[1]);
}

uint16_t ReadU16LE(Qel::streamIn& stream) {
    std::array<uint8_t, 2> b{};
    stream.readExact(b.data(), 2);
    return static_cast<uint16_t>(b[1] << 8 | b[0]);
}

uint32_t ReadU32BE(Qel::streamIn& stream) {
    const uint32_t high = ReadU16BE(stream);
    return high << 16 | ReadU16BE(stream);
}

uint32_t ReadU32LE(Qel::streamIn& stream) {
    const uint32_t low = ReadU16LE(stream);
    return uint32_t{ReadU16LE(stream)} << 16 | low;
}

uint64_t ReadU64BE(Qel::streamIn& stream) {
    const uint64_t high = ReadU32BE(stream);
    return high << 32 | ReadU32BE(stream);
}

}  // namespace imagedetect
