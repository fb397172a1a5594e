#pragma once
// The file stream of the Matroska engine: one clFile, read, written and
// resized through the EBML stream slots. Failures are EBML::ParseError.

#include <cstdint>

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"
#include "support/clFile.h"
#include "support/clString.h"

class streamImpl : public EBML::StreamRW {
public:
    explicit streamImpl(const clString& path) : file(path) {}

    // Messages off, share mode 3; `access` as for clFile::Open.
    bool Open(uint32_t access);
    void Close() { file.Close(); }

    void Read(void* buffer, uint64_t size) override;
    // A short forward move is a read, not a seek.
    void Skip(uint64_t size) override;
    uint64_t Tell() override;
    void Seek(uint64_t position) override;
    void WriteHere(const void* data, uint64_t size) override;
    void SetSize(uint64_t size) override;
    uint64_t GetSize() override;

    clFile file;
};
