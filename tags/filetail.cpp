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

bool TailSnapshot::Take(clFile& file, int64_t from) {
    bool failed = false;
    const int64_t size = file.Size(&failed);
    if (failed || from < 0 || from > size || size - from > UINT32_MAX) return false;
    from_ = from;
    bytes_.resize(static_cast<size_t>(size - from));
    const auto count = static_cast<uint32_t>(bytes_.size());
    return count == 0 || (file.Seek(from) && file.Read(bytes_.data(), count, &failed) == count && !failed);
}

bool TailSnapshot::Restore(clFile& file) const {
    const auto count = static_cast<uint32_t>(bytes_.size());
    const bool written = count == 0 || (file.Seek(from_) && file.Write(bytes_.data(), count));
    return written && file.SetLength(FileSize());
}
