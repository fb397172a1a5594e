#pragma once
// Shared by the tests that drive the built plug-in and fdhost from outside:
// the capability tables a host expects, and log text as UTF-16LE bytes.

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

// A log file's sink word, closed at the end of its scope.
using Fd = it::SinkFile;

// ASCII as the logs store it: UTF-16LE, no byte order mark.
inline std::string Utf16Le(std::string_view ascii) {
    std::string bytes;
    for (const char c : ascii) bytes += std::string{c, '\0'};
    return bytes;
}

// The JSON that caps must print, built from the capability tables.
inline std::string ExpectedCapsJson() {
    std::string json = R"({"description":"FFmpeg Decoder","decodes":[)";
    for (const auto& row : kExpectedDecodes) {
        json += std::string("[\"") + row.extension + "\",\"" + row.description + "\"],";
    }
    json.back() = ']';
    json += R"(,"streaming":[)";
    for (const char* mime : kExpectedStreaming) json += std::string("\"") + mime + "\",";
    json.back() = ']';
    return json + R"(,"warnings":[]})" + "\n";
}
