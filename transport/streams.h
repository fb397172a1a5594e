#pragma once
// Abstract byte streams. read() gives what there is (short only at the end of
// the stream); readExact()/skipExact() give all or raise Qel::invalid_input.

#include <cstddef>
#include <cstdint>

namespace Qel {

class streamIn {
public:
    virtual ~streamIn() = default;
    virtual size_t read(void* buffer, size_t count) = 0;
    virtual void readExact(void* buffer, size_t count);
    virtual uint64_t skip(uint64_t count);            // reads through a 256-byte scratch area
    virtual void skipExact(uint64_t count);
    virtual size_t readWhenReady(void* buffer, size_t count);
    virtual size_t readNow(void* buffer, size_t count);
    virtual uint64_t skipNow(uint64_t count);
    virtual void prepareRead(void* buffer, size_t count);
    virtual bool ready();
    // What is there now, at least one byte, waiting only while there is
    // none: 0 only at the end of the stream. Here: read().
    virtual size_t readSome(void* buffer, size_t count);
};

class streamOut {
public:
    virtual ~streamOut() = default;
    virtual void write(const void* buffer, size_t count) = 0;   // all bytes or an exception
    virtual size_t writeCounted(const void* buffer, size_t count);
    virtual void prepareWrite();
    virtual bool ready();
};

// A stream over bytes in memory (tests, fuzzing, parsers over buffers).
class streamInMemory : public streamIn {
public:
    streamInMemory(const void* data, size_t size);
    size_t read(void* buffer, size_t count) override;

private:
    const uint8_t* data_;
    size_t size_;
    size_t position_ = 0;
};

void CheckAbort();   // transport/waitable.h

// Fills buffer[done, count) piece by piece until all have come or the stream
// ends, and returns `done`. `done` is kept current on every piece, so after
// an exception (an abort) it still tells what was taken off the stream.
size_t ReadResumable(streamIn& stream, uint8_t* buffer, size_t count, size_t& done);

// For random-access sources: repeat `readOnce(buffer, count)` for the missing
// bytes until all have come or it returns 0; a set current aborter raises
// user_abort before each try.
template <class ReadOnce>
size_t ReadUntilDone(ReadOnce&& readOnce, uint8_t* buffer, size_t count) {
    size_t done = 0;
    while (done < count) {
        CheckAbort();
        size_t got = readOnce(buffer + done, count - done);
        if (got == 0) break;
        if (got > count - done) got = count - done;   // never trust a source to stay in bounds
        done += got;
    }
    return done;
}

}  // namespace Qel
