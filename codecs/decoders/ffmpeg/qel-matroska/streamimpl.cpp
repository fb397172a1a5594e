#include "codecs/decoders/ffmpeg/qel-matroska/streamimpl.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "transport/streams.h"

namespace {

constexpr uint64_t kShortSkip = 256;
constexpr uint32_t kMaxPiece = 1u << 30;
constexpr uint64_t kMaxPosition = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
// Big enough for the metadata in front of the first Cluster of most files.
constexpr size_t kWindow = 64 * 1024;

}  // namespace

bool streamImpl::Open(uint32_t access) {
    file.shareMode = 3;
    file.showMessages = false;
    windowed_ = (access & clFile::kWrite) == 0;
    window_.clear();
    position_ = 0;
    positionKnown_ = false;
    return file.Open(access);
}

size_t streamImpl::ReadUpTo(uint8_t* bytes, size_t size, bool& failed) {
    failed = false;
    return Qel::ReadUntilDone(
        [&](uint8_t* at, size_t count) {
            return static_cast<size_t>(file.Read(at, static_cast<uint32_t>(std::min<size_t>(count, kMaxPiece)), &failed));
        },
        bytes, size);
}

void streamImpl::MoveFileTo(uint64_t position) {
    if (position > kMaxPosition || !file.Seek(static_cast<int64_t>(position))) {
        positionKnown_ = false;
        EBML::Fail();
    }
}

// Small reads come from the window, which is refilled at the position when
// it doesn't hold them; a read at the end of the file fills it short.
bool streamImpl::ReadThroughWindow(uint8_t* bytes, uint64_t size) {
    const uint64_t position = Tell();
    if (size == 0) return true;
    const bool held = position >= windowStart_ && position - windowStart_ <= window_.size() &&
                      window_.size() - (position - windowStart_) >= size;
    if (!held) {
        window_.resize(kWindow);
        MoveFileTo(position);
        bool failed = false;
        const size_t done = ReadUpTo(window_.data(), window_.size(), failed);
        window_.resize(failed ? 0 : done);
        windowStart_ = position;
        if (failed || done < size) return false;
    }
    std::memcpy(bytes, window_.data() + (position - windowStart_), static_cast<size_t>(size));
    position_ = position + size;
    return true;
}

void streamImpl::Read(void* buffer, uint64_t size) {
    auto* bytes = static_cast<uint8_t*>(buffer);
    if (windowed_ && size <= kWindow) {
        if (!ReadThroughWindow(bytes, size)) EBML::Fail();
        return;
    }
    const uint64_t position = Tell();
    if (windowed_) MoveFileTo(position);
    bool failed = false;
    if (ReadUpTo(bytes, static_cast<size_t>(size), failed) != size || failed) {
        positionKnown_ = false;
        EBML::Fail();
    }
    position_ = position + size;
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
    if (positionKnown_) return position_;
    const int64_t position = file.Tell();
    if (position < 0) EBML::Fail();
    position_ = static_cast<uint64_t>(position);
    positionKnown_ = true;
    return position_;
}

// A reading stream moves the file only when it reads from it.
void streamImpl::Seek(uint64_t position) {
    if (position > kMaxPosition) EBML::Fail();
    if (!windowed_) MoveFileTo(position);
    position_ = position;
    positionKnown_ = true;
}

void streamImpl::WriteHere(const void* data, uint64_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    const uint64_t position = Tell();
    if (windowed_) MoveFileTo(position);
    window_.clear();
    positionKnown_ = false;
    for (uint64_t left = size; left > 0;) {
        const auto piece = static_cast<uint32_t>(std::min<uint64_t>(left, kMaxPiece));
        if (!file.Write(bytes, piece)) EBML::Fail();
        bytes += piece;
        left -= piece;
    }
    position_ = position + size;
    positionKnown_ = true;
}

void streamImpl::SetSize(uint64_t size) {
    window_.clear();
    positionKnown_ = false;   // cutting the file moves its position
    if (size > kMaxPosition || !file.SetLength(static_cast<int64_t>(size))) EBML::Fail();
}

uint64_t streamImpl::GetSize() {
    bool failed = false;
    const int64_t size = file.Size(&failed);
    if (failed || size < 0) EBML::Fail();
    return static_cast<uint64_t>(size);
}
