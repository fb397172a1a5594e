// clBuffer: a byte block that is reallocated only when it must grow.

#include "support/clBuffer.h"

#include <algorithm>
#include <cstring>
#include <new>

clBuffer::clBuffer(const clBuffer& other) { Assign(other.Data(), other.Size()); }

clBuffer::clBuffer(clBuffer&& other) noexcept
    : readCursor(other.readCursor),
      writeCursor(other.writeCursor),
      data_(std::move(other.data_)),
      size_(other.size_),
      capacity_(other.capacity_) {
    other.Clear();
}

clBuffer& clBuffer::operator=(const clBuffer& other) {
    if (this == &other) return *this;
    Assign(other.Data(), other.Size());
    return *this;
}

clBuffer& clBuffer::operator=(clBuffer&& other) noexcept {
    if (this == &other) return *this;
    data_ = std::move(other.data_);
    size_ = other.size_;
    capacity_ = other.capacity_;
    readCursor = other.readCursor;
    writeCursor = other.writeCursor;
    other.Clear();
    return *this;
}

bool clBuffer::Resize(uint32_t size, bool clear) {
    if (capacity_ == 0 || capacity_ < size) {
        const uint32_t blockSize = std::max<uint32_t>(size, 1);
        data_.reset();   // the old block goes first: its contents aren't kept anyway
        data_.reset(new (std::nothrow) uint8_t[blockSize]);
        capacity_ = data_ ? blockSize : 0;
        size_ = data_ ? size : 0;
    } else {
        size_ = size;
    }
    if (clear && data_) std::memset(data_.get(), 0, size_);
    readCursor = std::min(readCursor, size_);
    writeCursor = std::min(writeCursor, size_);
    return data_ != nullptr;
}

bool clBuffer::Assign(const void* source, uint32_t size) {
    if (source == nullptr && size > 0) return false;
    if (!Resize(size)) return false;
    if (size > 0) std::memcpy(data_.get(), source, size);
    return true;
}

void clBuffer::Clear() {
    data_.reset();
    size_ = 0;
    capacity_ = 0;
    readCursor = 0;
    writeCursor = 0;
}
