#pragma once
// fdhost's reader of the tag blob that Open hands out: u32 count, then per
// entry u32 length (counting itself), name UTF-16LE with NUL, value UTF-16LE
// with NUL, data. Every length is checked against the bytes there are.

#include <cstddef>
#include <string>
#include <vector>

namespace host {

struct BlobEntry {
    std::u16string name;
    std::u16string value;
    std::string data;    // raw bytes
};

// Throws HostError on a blob that doesn't hold together.
std::vector<BlobEntry> ReadTagBlob(const void* blob, size_t size);

}  // namespace host
