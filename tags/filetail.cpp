#include "tags/filetail.h"

#include <cstring>

#include "tags/apeformat.h"

bool FileTail::HasId3v1() const {
    constexpr uint32_t kFooterAt = kTailBytes - 32;
    return Complete() && std::memcmp(bytes + 3, "TAG", 3) == 0 && std::memcmp(bytes, "APE", 3) != 0 &&
           !ApeFrame::HasMagic(bytes + kFooterAt);
}

bool ReadFileTail(clFile& file, FileTail& tail) {
    tail = FileTail{};
    bool failed = false;
    int64_t size = file.Size(&failed);
    if (failed || size < static_cast<int64_t>(kTailBytes)) return false;
    if (!file.Seek(size - kTailBytes)) return false;
    tail.count = file.Read(tail.bytes, kTailBytes);
    return true;
}
