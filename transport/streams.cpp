// The default two-level operations of the abstract streams, and a stream
// over bytes in memory.

#include "transport/streams.h"

#include <algorithm>
#include <cstring>

#include "transport/exceptions.h"

namespace Qel {
namespace {

constexpr size_t kScratchSize = 256;

template <class ReadStep>
uint64_t SkipThrough(uint64_t count, ReadStep&& readStep) {
    uint8_t scratch[kScratchSize];
    uint64_t passed = 0;
    while (passed < count) {
        // A pipe read takes what is there without looking at the aborter, and
        // a skip may be long: it looks itself.
        CheckAbort();
        size_t step = static_cast<size_t>(std::min<uint64_t>(count - passed, kScratchSize));
        size_t got = readStep(scratch, step);
        passed += got;
        if (got < step) break;
    }
    return passed;
}

}  // namespace

void streamIn::readExact(void* buffer, size_t count) {
    if (read(buffer, count) != count) throw invalid_input();
}

uint64_t streamIn::skip(uint64_t count) {
    return SkipThrough(count, [this](void* buffer, size_t step) { return read(buffer, step); });
}

void streamIn::skipExact(uint64_t count) {
    if (skip(count) != count) throw invalid_input();
}

size_t streamIn::readWhenReady(void* buffer, size_t count) {
    prepareRead(buffer, count);
    return readNow(buffer, count);
}

size_t streamIn::readNow(void* buffer, size_t count) { return read(buffer, count); }

uint64_t streamIn::skipNow(uint64_t count) {
    return SkipThrough(count, [this](void* buffer, size_t step) { return readNow(buffer, step); });
}

void streamIn::prepareRead(void*, size_t) {}

bool streamIn::ready() { return true; }

size_t streamIn::readSome(void* buffer, size_t count) { return read(buffer, count); }

size_t ReadResumable(streamIn& stream, uint8_t* buffer, size_t count, size_t& done) {
    while (done < count) {
        const size_t got = stream.readSome(buffer + done, count - done);
        if (got == 0) break;
        done += std::min(got, count - done);
    }
    return done;
}

size_t streamOut::writeCounted(const void* buffer, size_t count) {
    write(buffer, count);
    return count;
}

void streamOut::prepareWrite() {}

bool streamOut::ready() { return true; }

streamInMemory::streamInMemory(const void* data, size_t size)
    : data_(static_cast<const uint8_t*>(data)), size_(data ? size : 0) {}

size_t streamInMemory::read(void* buffer, size_t count) {
    size_t take = std::min(count, size_ - position_);
    if (take == 0) return 0;
    std::memcpy(buffer, data_ + position_, take);
    position_ += take;
    return take;
}

}  // namespace Qel
