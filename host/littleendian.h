#pragma once
// Fields of the little-endian WAVEFORMATEX record the plug-in hands out.

#include <cstdint>

namespace host {

inline uint16_t U16At(const uint8_t* bytes) { return static_cast<uint16_t>(bytes[0] | bytes[1] << 8); }
inline uint32_t U32At(const uint8_t* bytes) { return uint32_t{U16At(bytes)} | uint32_t{U16At(bytes + 2)} << 16; }

}  // namespace host
