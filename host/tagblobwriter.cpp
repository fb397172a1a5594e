#include "host/tagblobwriter.h"

#include <cstdint>
#include <limits>

#include "host/errors.h"

namespace host {
namespace {

void PutU32(std::string& out, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) out += static_cast<char>((value >> shift) & 0xFF);
}

void PutText(std::string& out, const std::u16string& text) {
    for (char16_t unit : text) {
        out += static_cast<char>(unit & 0xFF);
        out += static_cast<char>(unit >> 8);
    }
    out.append(2, '\0');
}

uint64_t EntrySize(const BlobEntry& entry) {
    return 4 + 2 * (entry.name.size() + 1) + 2 * (entry.value.size() + 1) + entry.data.size();
}

}  // namespace

std::string WriteTagBlob(const std::vector<BlobEntry>& entries) {
    constexpr uint64_t kLargestBlob = std::numeric_limits<int32_t>::max();
    uint64_t total = 4;
    for (const BlobEntry& entry : entries) total += EntrySize(entry);
    if (total > kLargestBlob) throw HostError("the tags are too large for one tag blob (2 GiB at most)");
    std::string out;
    out.reserve(static_cast<size_t>(total));
    PutU32(out, static_cast<uint32_t>(entries.size()));
    for (const BlobEntry& entry : entries) {
        PutU32(out, static_cast<uint32_t>(EntrySize(entry)));
        PutText(out, entry.name);
        PutText(out, entry.value);
        out += entry.data;
    }
    return out;
}

}  // namespace host
