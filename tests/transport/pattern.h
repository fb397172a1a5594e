#pragma once
// The test child's output: position-dependent with a period (251) prime to
// every power of two, so a lost, doubled or moved chunk shows.
inline unsigned char PatternByte(unsigned long long position) {
    return static_cast<unsigned char>((position % 251) ^ ((position / 251) & 0xFF));
}
