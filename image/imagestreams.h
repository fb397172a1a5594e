#pragma once
// The views the image readers work through, and big- and little-endian reads
// over a Qel::streamIn. Every short read raises Qel::invalid_input.

#include <cstdint>

#include "transport/streams.h"

namespace imagedetect {

// Hands out bytes a dispatcher already consumed, then reads on underneath.
class PrefixReader : public Qel::streamIn {
public:
    PrefixReader(const uint8_t* bytes, size_t count, Qel::streamIn& below)
        : bytes_(bytes), count_(count), below_(below) {}
    size_t read(void* buffer, size_t count) override;

private:
    const uint8_t* bytes_;
    size_t count_;
    size_t used_ = 0;
    Qel::streamIn& below_;
};

// A budget of bytes over another stream. Exact reads and skips beyond the
// budget raise; plain ones are cut to it. Nested boxes share one view:
// Enter sets the parent's rest aside, Leave skips what is left of the child
// and restores it.
class BoundedReader : public Qel::streamIn {
public:
    BoundedReader(uint64_t budget, Qel::streamIn& below) : budget_(budget), below_(below) {}
    size_t read(void* buffer, size_t count) override;
    void readExact(void* buffer, size_t count) override;
    uint64_t skip(uint64_t count) override;
    void skipExact(uint64_t count) override;

    uint64_t Budget() const { return budget_; }
    // Returns the parent's rest; raises when the child is larger than the budget.
    uint64_t Enter(uint64_t childSize);
    void Leave(uint64_t parentRest);

private:
    uint64_t budget_;
    Qel::streamIn& below_;
};

struct BoxHeader {
    char type[4] = {};
    uint32_t headerLength = 0;
    uint64_t payload = 0;   // all ones: to the end
};
inline constexpr uint64_t kToTheEnd = ~uint64_t{0};

BoxHeader ReadBoxHeader(Qel::streamIn& stream);
bool IsType(const BoxHeader& box, const char* type);

uint8_t ReadU8(Qel::streamIn& stream);
uint16_t ReadU16BE(Qel::streamIn& stream);
uint16_t ReadU16LE(Qel::streamIn& stream);
uint32_t ReadU32BE(Qel::streamIn& stream);
uint32_t ReadU32LE(Qel::streamIn& stream);
uint64_t ReadU64BE(Qel::streamIn& stream);

}  // namespace imagedetect
