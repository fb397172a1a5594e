#pragma once
// The byte layout of an APE tag: a 32-byte header and footer of the same form
// around the items. All numbers are little-endian.

#include <cstdint>
#include <cstring>

#include "tags/bytesle.h"

inline constexpr uint32_t kApeHeaderBytes = 32;
inline constexpr uint32_t kApeItemHeadBytes = 8;      // value size, item flags
inline constexpr uint32_t kApeVersion1 = 1000;
inline constexpr uint32_t kApeVersion2 = 2000;
inline constexpr uint32_t kApeHasHeader = 0x80000000u;
inline constexpr uint32_t kApeIsHeader = 0x20000000u;
// No tag of ours comes near this; a larger size field is taken for damage, so
// a bad length never makes us allocate what the file can't hold. It bounds
// every value too: a value needs no limit of its own beyond its tag's bytes.
inline constexpr uint32_t kApeLargestTag = 0x10000000;
inline constexpr char kApeMagic[8] = {'A', 'P', 'E', 'T', 'A', 'G', 'E', 'X'};

enum ApeItemType : uint32_t { kApeText = 0, kApeBinary = 1, kApeLocator = 2, kApeReserved = 3 };

inline uint32_t ApeItemTypeOf(uint32_t flags) { return (flags >> 1) & 3; }
inline uint32_t ApeFlagsOf(ApeItemType type) { return static_cast<uint32_t>(type) << 1; }

// Header and footer.
struct ApeFrame {
    uint32_t version = 0;
    uint32_t size = 0;    // items plus footer, without the header
    uint32_t count = 0;
    uint32_t flags = 0;

    static bool HasMagic(const uint8_t* bytes) { return std::memcmp(bytes, kApeMagic, sizeof kApeMagic) == 0; }

    static ApeFrame From(const uint8_t* bytes) {
        ApeFrame frame;
        frame.version = GetU32LE(bytes + 8);
        frame.size = GetU32LE(bytes + 12);
        frame.count = GetU32LE(bytes + 16);
        frame.flags = GetU32LE(bytes + 20);
        return frame;
    }

    void Put(uint8_t* bytes) const {
        std::memcpy(bytes, kApeMagic, sizeof kApeMagic);
        PutU32LE(bytes + 8, version);
        PutU32LE(bytes + 12, size);
        PutU32LE(bytes + 16, count);
        PutU32LE(bytes + 20, flags);
        std::memset(bytes + 24, 0, 8);
    }

    bool KnownVersion() const { return version == kApeVersion1 || version == kApeVersion2; }
};
