#pragma once
// The byte streams that the ID3v2 parser and writer work on. They chain (a
// file adapter feeds a cache, the cache a window, the window an
// unsynchronisation filter), and no stream owns the one below it.

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

namespace id3parser {

struct parseError : std::runtime_error {
    parseError() : std::runtime_error("ID3v2 parse error") {}
};
struct writeError : std::runtime_error {
    writeError() : std::runtime_error("ID3v2 write error") {}
};
struct notSeekableError : std::runtime_error {
    notSeekableError() : std::runtime_error("Not seekable") {}
};

// A short count from read or skip is the end of the stream; the Exact forms
// turn it into parseError.
class streamIn {
public:
    virtual ~streamIn() = default;
    virtual uint64_t read(uint8_t* buffer, uint64_t length) = 0;
    virtual uint64_t skip(uint64_t length) = 0;
    uint64_t readExact(uint8_t* buffer, uint64_t length);
    uint64_t skipExact(uint64_t length);
    virtual uint64_t tell() = 0;
    virtual void seek(uint64_t position) = 0;
};

class streamOut {
public:
    virtual ~streamOut() = default;
    virtual void write(const uint8_t* buffer, uint64_t length) = 0;
};

// A window onto the next `total` bytes of another stream.
class streamLimited : public streamIn {
public:
    streamLimited(streamIn& source, uint64_t total) : source_(source), remaining_(total), total_(total) {}
    uint64_t read(uint8_t* buffer, uint64_t length) override;
    uint64_t skip(uint64_t length) override;
    uint64_t tell() override { return total_ - remaining_; }
    void seek(uint64_t position) override;

private:
    streamIn& source_;
    uint64_t remaining_;
    uint64_t total_;
};

// Undoes unsynchronisation: drops the 0x00 inserted behind each 0xFF.
class streamFixSync : public streamIn {
public:
    explicit streamFixSync(streamIn& source) : source_(source) {}
    uint64_t read(uint8_t* buffer, uint64_t length) override;
    uint64_t skip(uint64_t length) override;
    uint64_t tell() override { throw notSeekableError(); }
    void seek(uint64_t) override { throw notSeekableError(); }

private:
    bool readByte(uint8_t& out);

    streamIn& source_;
    uint8_t pendingByte_ = 0;
    bool hasPending_ = false;
};

// Bytes in memory that the stream doesn't own.
class streamInMem : public streamIn {
public:
    streamInMem(const uint8_t* data, uint64_t size) : data_(data), size_(size) {}
    uint64_t read(uint8_t* buffer, uint64_t length) override;
    uint64_t skip(uint64_t length) override;
    uint64_t tell() override { return position_; }
    void seek(uint64_t position) override;

private:
    const uint8_t* data_;
    uint64_t size_;
    uint64_t position_ = 0;
};

// Read-ahead, so that the one-byte reads of the frame loops don't reach the
// file; reads of more than half the capacity bypass the buffer.
class streamInCache : public streamIn {
public:
    streamInCache(streamIn& source, uint64_t capacity)
        : source_(source), capacity_(capacity), buffer_(std::make_unique<uint8_t[]>(capacity)) {}
    uint64_t read(uint8_t* buffer, uint64_t length) override;
    uint64_t skip(uint64_t length) override { return read(nullptr, length); }
    uint64_t tell() override { return source_.tell() - (filled_ - cursor_); }
    void seek(uint64_t position) override;
    uint64_t filled() const { return filled_; }

private:
    streamIn& source_;
    uint64_t capacity_;
    uint64_t filled_ = 0;
    uint64_t cursor_ = 0;
    std::unique_ptr<uint8_t[]> buffer_;
};

class streamOutBuffer : public streamOut {
public:
    void write(const uint8_t* buffer, uint64_t length) override { bytes.insert(bytes.end(), buffer, buffer + length); }
    std::vector<uint8_t> bytes;
};

}  // namespace id3parser
