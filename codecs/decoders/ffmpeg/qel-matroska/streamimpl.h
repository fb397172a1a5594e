#pragma once
// The file stream of the Matroska engine: one clFile, read, written and
// resized through the EBML stream slots. Failures are EBML::ParseError.
//
// The EBML walk reads an element's ID and size a byte or two at a time and
// asks for its position after each; done one system call each, that costs
// thousands of calls for a small file. So the stream keeps the position
// itself, and a stream opened only for reading serves small reads from a
// window of the file read in one go. A stream that writes reads straight
// from the file, so it never acts on bytes older than its own writes.

#include <cstdint>
#include <vector>

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

private:
    // Reads at the file's own position until `size` bytes or the end of the
    // file; the count read.
    size_t ReadUpTo(uint8_t* bytes, size_t size, bool& failed);
    bool ReadThroughWindow(uint8_t* bytes, uint64_t size);
    void MoveFileTo(uint64_t position);

    bool windowed_ = false;             // opened for reading only
    std::vector<uint8_t> window_;       // file bytes from windowStart_ on
    uint64_t windowStart_ = 0;
    uint64_t position_ = 0;             // valid when positionKnown_
    bool positionKnown_ = false;
};
