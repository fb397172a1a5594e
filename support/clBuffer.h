#pragma once
// Byte buffer. A growing Resize does not keep the old contents; a shrinking
// one keeps the block and only changes the size.

#include <cstdint>
#include <memory>

class clBuffer {
public:
    clBuffer() = default;
    clBuffer(const clBuffer& other);
    clBuffer(clBuffer&& other) noexcept;
    clBuffer& operator=(const clBuffer& other);
    clBuffer& operator=(clBuffer&& other) noexcept;
    ~clBuffer() = default;

    // Allocates a new block (at least 1 byte) when capacity is 0 or below
    // `size`, without copying; otherwise only the size changes. `clear` zeroes
    // the bytes. Cursors are cut back to the size. Returns whether Data() is set.
    bool Resize(uint32_t size, bool clear = false);
    // Resize, then copy `size` bytes from `source`.
    bool Assign(const void* source, uint32_t size);
    void Clear();

    uint8_t* Data() { return data_.get(); }
    const uint8_t* Data() const { return data_.get(); }
    uint32_t Size() const { return size_; }
    uint32_t Capacity() const { return capacity_; }
    bool Empty() const { return size_ == 0; }

    uint32_t readCursor = 0;
    uint32_t writeCursor = 0;

private:
    std::unique_ptr<uint8_t[]> data_;
    uint32_t size_ = 0;
    uint32_t capacity_ = 0;
};
