#pragma once
// Helpers for the tests that drive the built plug-in and fdhost from outside:
// the capability tables as the host contract states them, temporary files,
// and UTF-16LE bytes as the logs hold them.

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

struct ExpectedDecodesRow {
    const char* extension;
    const char* description;
};

inline constexpr std::array<ExpectedDecodesRow, 19> kExpectedDecodes = {{
    {".tak", "Tom's Audio Kompressor"}, {".shn", "Shorten"},       {".ac3", "AC-3"},
    {".eac3", "E-AC-3"},                {".mka", "Matroska Audio"}, {".weba", "Web Audio"},
    {".vqf", "TwinVQ"},                 {".dts", "DTS"},            {".dtshd", "DTS-HD"},
    {".tta", "True Audio"},             {".mlp", "MLP"},            {".ts", "MPEG-TS"},
    {".ra", "Real Audio"},              {".rm", "Real Audio"},      {".voc", "Creative Voice"},
    {".au", "AU/SND"},                  {".snd", "AU/SND"},         {".amr", "AMR"},
    {".awb", "AMR"},
}};

inline constexpr std::array<const char*, 5> kExpectedStreaming = {
    "application/vnd.apple.mpegurl", "audio/mpegurl", "audio/x-mpegurl",
    "application/mpegurl", "application/x-mpegurl",
};

// A fresh folder, removed with everything in it at the end of the test.
class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "fdtest-XXXXXX").string();
        if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    const std::filesystem::path& Path() const { return path_; }
    std::string File(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

// An open descriptor, closed at the end of its scope.
class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd() {
        if (fd_ >= 0) close(fd_);
    }
    int Get() const { return fd_; }

private:
    int fd_;
};

inline Fd CreateFile(const std::string& path) {
    return Fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
}

inline std::string ReadFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteFileBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

// ASCII text as the log stores it: UTF-16LE, no byte order mark.
inline std::string Utf16Le(std::string_view ascii) {
    std::string bytes;
    for (const char c : ascii) {
        bytes += c;
        bytes += '\0';
    }
    return bytes;
}
