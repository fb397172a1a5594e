#pragma once
// A file stream whose writes are staged in memory: reads see them at once,
// the file sees none of them until Commit replays them in their order. A
// retag plans every change through it, so that a failure anywhere in the
// planning leaves the file byte for byte as it was.

#include <cstdint>
#include <vector>

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"

class StagedStream : public EBML::StreamRW {
public:
    explicit StagedStream(EBML::StreamRW& file);

    void Read(void* buffer, uint64_t size) override;
    void Skip(uint64_t size) override;
    uint64_t Tell() override { return position_; }
    void Seek(uint64_t position) override;
    void WriteHere(const void* data, uint64_t size) override;
    void SetSize(uint64_t size) override;
    uint64_t GetSize() override { return size_; }

    bool Changed() const { return !changes_.empty(); }
    // Writes the staged changes into the file, in the order they were made;
    // when a write fails, the file's old bytes and size go back first.
    void Commit();

private:
    struct Change {
        uint64_t at = 0;
        std::vector<uint8_t> bytes;   // empty: the file's size becomes `at`
        bool Resizes() const { return bytes.empty(); }
    };

    std::vector<uint8_t> FileBytes(uint64_t at, uint64_t size);

    EBML::StreamRW& file_;
    uint64_t fileSize_ = 0;
    uint64_t size_ = 0;
    uint64_t position_ = 0;
    std::vector<Change> changes_;
};
