#include "codecs/decoders/ffmpeg/qel-matroska/streamimpl.h"

#include <algorithm>
#include <array>
#include <limits>

#include "transport/streams.h"

namespace {

constexpr uint64_t kShortSkip = 256;
constexpr uint32_t kMaxPiece = 1u << 30;
constexpr uint64_t kMaxPosition = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());

}  // namespace

bool streamImpl::Open(uint32_t access) {
    file.shareMode = 3;
    file.showMessages = false;
    return file.Open(access);
}

void streamImpl::Read(void* buffer, uint64_t size) {
    auto* bytes = static_cast<uint8_t*>(buffer);
    bool failed = false;
    const size_t done = Qel::ReadUntilDone(
        [&](uint8_t* at, size_t count) {
            return static_cast<size_t>(file.Read(at, static_cast<uint32_t>(std::min<size_t>(count, kMaxPiece)), &failed));
        },
        bytes, static_cast<size_t>(size));
    if (failed || done != size) EBML::Fail();
}

void streamImpl::Skip(uint64_t size) {
    if (size > kShortSkip) {
        const uint64_t position = Tell();
        if (position + size < position) EBML::Fail();
        EBML::BoundedSeek(*this, position + size);
        return;
    }
    std::array<uint8_t, kShortSkip> scratch{};
    Read(scratch.data(), size);
}

uint64_t streamImpl::Tell() {
    const int64_t position = file.Tell();
    if (position < 0) EBML::Fail();
    return static_cast<uint64_t>(position);
}

void streamImpl::Seek(uint64_t position) {
    if (position > kMaxPosition || !file.Seek(static_cast<int64_t>(position))) EBML::Fail();
}

void streamImpl::WriteHere(const void* data, uint64_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (size > 0) {
        const auto piece = static_cast<uint32_t>(std::min<uint64_t>(size, kMaxPiece));
        if (!file.Write(bytes, piece)) EBML::Fail();
        bytes += piece;
        size -= piece;
    }
}

void streamImpl::SetSize(uint64_t size) {
    if (size > kMaxPosition || !file.SetLength(static_cast<int64_t>(size))) EBML::Fail();
}

uint64_t streamImpl::GetSize() {
    bool failed = false;
    const int64_t size = file.Size(&failed);
    if (failed || size < 0) EBML::Fail();
    return static_cast<uint64_t>(size);
}
