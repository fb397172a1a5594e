#pragma once
// A file in memory-backed storage that a fuzz target fills with the input, so
// that the tag engines work on a real file handle as they do in the plug-in.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

class ScratchFile {
public:
    explicit ScratchFile(const char* extension) {
        std::string pattern = std::string(Folder()) + "/fdfuzz-XXXXXX" + extension;
        int fd = ::mkstemps(pattern.data(), static_cast<int>(std::string(extension).size()));
        if (fd < 0) std::abort();
        ::close(fd);
        path_ = pattern;
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    ~ScratchFile() { ::unlink(path_.c_str()); }

    const std::string& Path() const { return path_; }

    void Fill(const uint8_t* data, size_t size) const {
        std::ofstream out(path_, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        if (!out) std::abort();
    }

    std::string Bytes() const {
        std::ifstream in(path_, std::ios::binary);
        std::ostringstream out;
        out << in.rdbuf();
        return out.str();
    }

private:
    static const char* Folder() { return ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp"; }

    std::string path_;
};

inline void Require(bool condition) {
    if (!condition) std::abort();
}
