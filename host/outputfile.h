#pragma once
// Where `fdhost decode` writes: a file it creates, or standard output for
// "-". Writes go straight to the system's handle, without a stdio buffer in
// between, because audio is written in large blocks anyway. A file that was
// not closed by Close(), because the decode failed or was interrupted, is
// removed: no partial output is left to pass for a whole one. Seam: a
// descriptor on Linux, a HANDLE on Windows.

#include <cstddef>
#include <cstdint>
#include <string>

namespace host {

class OutputFile {
public:
    // Throws HostError when the file can't be created, or exists and
    // `overwrite` is false.
    OutputFile(const std::string& path, bool overwrite);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();

    // All bytes or HostError (a closed pipe included).
    void Write(const void* bytes, size_t size);
    // Writes at an absolute offset; only for a seekable output.
    void WriteAt(uint64_t offset, const void* bytes, size_t size);
    bool Seekable() const { return seekable_; }
    // Whether the destructor removes the file when Close() was not called.
    bool RemovedUnlessClosed() const { return owned_ && seekable_; }
    // Flushes to the file and keeps it; HostError when that fails.
    void Close();

private:
    std::string path_;
    std::string filePath_;   // empty for standard output
    bool kept_ = false;
    intptr_t handle_ = -1;
    bool owned_ = false;
    bool seekable_ = false;
};

}  // namespace host
