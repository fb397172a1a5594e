#include "tags/id3v2/id3streams.h"

#include <algorithm>
#include <cstring>

namespace id3parser {

uint64_t streamIn::readExact(uint8_t* buffer, uint64_t length) {
    if (read(buffer, length) != length) throw parseError();
    return length;
}

uint64_t streamIn::skipExact(uint64_t length) {
    if (skip(length) != length) throw parseError();
    return length;
}

uint64_t streamLimited::read(uint8_t* buffer, uint64_t length) {
    const uint64_t done = source_.read(buffer, std::min(length, remaining_));
    remaining_ -= done;
    return done;
}

uint64_t streamLimited::skip(uint64_t length) {
    const uint64_t done = source_.skip(std::min(length, remaining_));
    remaining_ -= done;
    return done;
}

void streamLimited::seek(uint64_t position) {
    if (position > total_) throw parseError();
    source_.seek(source_.tell() + remaining_ - total_ + position);
    remaining_ = total_ - position;
}

bool streamFixSync::readByte(uint8_t& out) {
    if (hasPending_) {
        out = pendingByte_;
        hasPending_ = false;
        return true;
    }
    uint8_t b = 0;
    if (source_.read(&b, 1) != 1) return false;
    if (b == 0xFF) {
        uint8_t next = 0;
        source_.readExact(&next, 1);   // a 0xFF at the very end is damage
        if ((next & 0xE0) == 0xE0) throw parseError();
        if (next != 0) {
            pendingByte_ = next;
            hasPending_ = true;
        }
    }
    out = b;
    return true;
}

uint64_t streamFixSync::read(uint8_t* buffer, uint64_t length) {
    uint64_t done = 0;
    uint8_t b = 0;
    while (done < length && readByte(b)) buffer[done++] = b;
    return done;
}

uint64_t streamFixSync::skip(uint64_t length) {
    uint64_t done = 0;
    uint8_t b = 0;
    while (done < length && readByte(b)) ++done;
    return done;
}

uint64_t streamInMem::read(uint8_t* buffer, uint64_t length) {
    const uint64_t count = std::min(length, size_ - position_);
    if (count != 0) std::memcpy(buffer, data_ + position_, count);
    position_ += count;
    return count;
}

uint64_t streamInMem::skip(uint64_t length) {
    const uint64_t count = std::min(length, size_ - position_);
    position_ += count;
    return count;
}

void streamInMem::seek(uint64_t position) {
    if (position > size_) throw parseError();
    position_ = position;
}

uint64_t streamInCache::read(uint8_t* buffer, uint64_t length) {
    uint64_t done = 0;
    while (length != 0) {
        if (filled_ != cursor_) {
            const uint64_t count = std::min(length - done, filled_ - cursor_);
            if (buffer != nullptr) std::memcpy(buffer + done, buffer_.get() + cursor_, count);
            cursor_ += count;
            done += count;
            if (done == length) return done;
        }
        cursor_ = 0;
        filled_ = 0;
        const uint64_t rest = length - done;
        if (rest > capacity_ / 2) {
            return done + (buffer == nullptr ? source_.skip(rest) : source_.read(buffer + done, rest));
        }
        filled_ = source_.read(buffer_.get(), capacity_);
        if (filled_ == 0) return done;
    }
    return 0;
}

void streamInCache::seek(uint64_t position) {
    source_.seek(position);
    cursor_ = 0;
    filled_ = 0;
}

}  // namespace id3parser
