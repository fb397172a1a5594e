#pragma once
// fdhost's writer of the tag blob that Set("IDTags") takes: u32 count, then per
// entry u32 length (counting itself), name UTF-16LE with NUL, value UTF-16LE
// with NUL, data.

#include <string>
#include <vector>

#include "host/tagblob.h"

namespace host {

// Throws HostError when the blob would not fit the record's signed 32-bit size.
std::string WriteTagBlob(const std::vector<BlobEntry>& entries);

}  // namespace host
