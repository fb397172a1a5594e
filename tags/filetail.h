#pragma once
// The last 131 bytes of a file: room for an ID3v1 tag and the 3 bytes in front
// of it, which tell an ID3v1 tag from the "APETAGEX" magic of an APE tag that
// shows "TAG" at the same place.

#include <cstdint>
#include <vector>

#include "support/clFile.h"

inline constexpr uint32_t kTailBytes = 131;
inline constexpr uint32_t kId3v1Bytes = 128;

struct FileTail {
    uint8_t bytes[kTailBytes] = {};
    uint32_t count = 0;   // bytes that came

    bool Complete() const { return count == kTailBytes; }
    // All 131 bytes came, "TAG" at 3 and no "APE" at 0, and the file doesn't
    // end with an APE footer: item bytes of an APE tag may show "TAG" 128
    // bytes before the end, and must not pass as ID3v1.
    bool HasId3v1() const;
    const uint8_t* Id3v1() const { return bytes + (kTailBytes - kId3v1Bytes); }
};

// False when the tail's start can't be reached: a failed size query, or a file
// shorter than 131 bytes. A short read is no failure; `count` tells.
bool ReadFileTail(clFile& file, FileTail& tail);

// The bytes from one offset to a file's end, kept so that a change behind that
// offset can be undone: the tags at a file's end are replaced, never patched.
class TailSnapshot {
public:
    // False when the bytes can't be read.
    bool Take(clFile& file, int64_t from);
    // Writes them back and gives the file its old length; false when that failed.
    bool Restore(clFile& file) const;
    int64_t From() const { return from_; }
    int64_t FileSize() const { return from_ + static_cast<int64_t>(bytes_.size()); }

private:
    int64_t from_ = 0;
    std::vector<uint8_t> bytes_;
};
