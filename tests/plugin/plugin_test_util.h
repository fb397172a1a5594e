#pragma once
// Shared by the tests that drive the built plug-in and fdhost from outside:
// the capability tables a host expects, and log text as UTF-16LE bytes.

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <string>
#include <string_view>

#include "tests/integration/testkit.h"

using it::ReadFile;
using it::TempDir;
using it::WriteFile;

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

// A log file's descriptor, closed at the end of its scope.
class Fd {
public:
    explicit Fd(const std::string& path) : fd_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {}
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd() { if (fd_ >= 0) close(fd_); }
    uint64_t Get() const { return static_cast<uint64_t>(fd_); }

private:
    int fd_;
};

// ASCII as the logs store it: UTF-16LE, no byte order mark.
inline std::string Utf16Le(std::string_view ascii) {
    std::string bytes;
    for (const char c : ascii) bytes += std::string{c, '\0'};
    return bytes;
}
