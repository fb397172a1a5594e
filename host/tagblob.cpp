#include "host/tagblob.h"

#include <cstdint>

#include "host/errors.h"

namespace host {
namespace {

uint32_t LittleU32(const uint8_t* bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}

[[noreturn]] void Malformed(const char* what) {
    throw HostError(std::string("the plug-in handed out a malformed tag blob: ") + what);
}

// A NUL-terminated UTF-16LE text at bytes[pos, end); moves pos behind the NUL.
std::u16string TakeText(const uint8_t* bytes, size_t& pos, size_t end) {
    std::u16string text;
    while (pos + 2 <= end) {
        const auto unit = static_cast<char16_t>(bytes[pos] | bytes[pos + 1] << 8);
        pos += 2;
        if (unit == 0) return text;
        text += unit;
    }
    Malformed("a text without its NUL");
}

}  // namespace

std::vector<BlobEntry> ReadTagBlob(const void* blob, size_t size) {
    std::vector<BlobEntry> entries;
    if (blob == nullptr || size == 0) return entries;
    const auto* bytes = static_cast<const uint8_t*>(blob);
    if (size < 4) Malformed("shorter than its count");
    const uint32_t count = LittleU32(bytes);
    size_t pos = 4;
    for (uint32_t i = 0; i < count; ++i) {
        if (size - pos < 4) Malformed("fewer entries than its count");
        const uint32_t length = LittleU32(bytes + pos);
        if (length < 4 || length > size - pos) Malformed("an entry length out of bounds");
        const size_t end = pos + length;
        pos += 4;
        BlobEntry entry;
        entry.name = TakeText(bytes, pos, end);
        entry.value = TakeText(bytes, pos, end);
        entry.data.assign(reinterpret_cast<const char*>(bytes + pos), end - pos);
        pos = end;
        entries.push_back(std::move(entry));
    }
    if (pos != size) Malformed("bytes behind the last entry");
    return entries;
}

}  // namespace host
