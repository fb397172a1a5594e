#pragma once
// The test child's output: position-dependent with a period (251) prime to
// every power of two, so a lost, doubled or moved chunk shows.

#include <string>

inline unsigned char PatternByte(unsigned long long position) {
    return static_cast<unsigned char>((position % 251) ^ ((position / 251) & 0xFF));
}

// How many of `bytes` differ from the pattern that starts at position 0.
inline size_t PatternMismatches(const std::string& bytes) {
    size_t wrong = 0;
    for (size_t i = 0; i < bytes.size(); ++i) wrong += static_cast<unsigned char>(bytes[i]) != PatternByte(i);
    return wrong;
}
