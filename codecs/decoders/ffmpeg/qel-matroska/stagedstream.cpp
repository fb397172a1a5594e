#include "codecs/decoders/ffmpeg/qel-matroska/stagedstream.h"

#include <algorithm>
#include <cstring>

StagedStream::StagedStream(EBML::StreamRW& file) : file_(file) {
    fileSize_ = file.GetSize();
    size_ = fileSize_;
    m_range = EBML::Range{0, size_};
}

void StagedStream::Read(void* buffer, uint64_t size) {
    if (size == 0) return;
    if (position_ > size_ || size > size_ - position_) EBML::Fail();
    auto* out = static_cast<uint8_t*>(buffer);
    const uint64_t begin = position_, end = position_ + size;
    std::memset(out, 0, static_cast<size_t>(size));
    // The file's own bytes first, then every change over them in its order.
    if (begin < fileSize_) {
        const EBML::Range saved = file_.m_range;
        file_.m_range = EBML::Range{0, fileSize_};
        file_.Seek(begin);
        file_.Read(out, std::min(end, fileSize_) - begin);
        file_.m_range = saved;
    }
    for (const Change& change : changes_) {
        if (change.Resizes()) {
            if (change.at < end) std::memset(out + (std::max(change.at, begin) - begin), 0, end - std::max(change.at, begin));
            continue;
        }
        const uint64_t from = std::max(begin, change.at), to = std::min(end, change.at + change.bytes.size());
        if (from < to) std::memcpy(out + (from - begin), change.bytes.data() + (from - change.at), to - from);
    }
    position_ = end;
}

void StagedStream::Skip(uint64_t size) {
    if (position_ + size < position_) EBML::Fail();
    position_ += size;
}

void StagedStream::Seek(uint64_t position) { position_ = position; }

void StagedStream::WriteHere(const void* data, uint64_t size) {
    if (size == 0) return;
    if (position_ > size_ || position_ + size < position_) EBML::Fail();
    const auto* bytes = static_cast<const uint8_t*>(data);
    changes_.push_back({position_, std::vector<uint8_t>(bytes, bytes + size)});
    position_ += size;
    size_ = std::max(size_, position_);
}

void StagedStream::SetSize(uint64_t size) {
    changes_.push_back({size, {}});
    size_ = size;
}

// The file's own bytes under [at, at + size), as far as the file reaches.
std::vector<uint8_t> StagedStream::FileBytes(uint64_t at, uint64_t size) {
    if (at >= fileSize_) return {};
    std::vector<uint8_t> bytes(static_cast<size_t>(std::min(size, fileSize_ - at)));
    const EBML::Range saved = file_.m_range;
    file_.m_range = EBML::Range{0, fileSize_};
    file_.Seek(at);
    file_.Read(bytes.data(), bytes.size());
    file_.m_range = saved;
    return bytes;
}

// The old bytes under every write and cut are read before the first one, so that a
// write that fails part-way (a disk that fills where the file grows) puts
// them back and the file ends byte for byte as it was. A device that fails
// every write leaves the undo undone too; the error goes on either way.
void StagedStream::Commit() {
    std::vector<Change> undo;
    for (const Change& change : changes_) {
        // A resize keeps what it would cut off.
        const uint64_t size = change.Resizes() ? UINT64_MAX : change.bytes.size();
        undo.push_back({change.at, FileBytes(change.at, size)});
    }
    try {
        for (const Change& change : changes_) {
            if (change.Resizes()) {
                file_.SetSize(change.at);
                continue;
            }
            file_.Seek(change.at);
            file_.WriteHere(change.bytes.data(), change.bytes.size());
        }
    } catch (...) {
        try {
            for (const Change& old : undo) {
                if (old.bytes.empty()) continue;
                file_.Seek(old.at);
                file_.WriteHere(old.bytes.data(), old.bytes.size());
            }
            file_.SetSize(fileSize_);
        } catch (...) {
        }
        throw;
    }
    changes_.clear();
    fileSize_ = file_.GetSize();
}
