#include "host/picturetypes.h"

#include <array>

#include "host/errors.h"

namespace host {
namespace {

constexpr std::array<std::string_view, 20> kTypes = {
    "32x32 Icon",         "Other Icon",       "Front Album Cover",  "Back Album Cover",
    "Leaflet Page",       "Media",            "Lead Artist",        "Artist",
    "Conductor",          "Band",             "Composer",           "Writer",
    "Recording Location", "During Recording", "During Performance", "Video Capture",
    "A Bright Coloured Fish", "Illustration", "Artist Logo",        "Publisher Logo",
};

char FoldAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

bool EqualsNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (FoldAscii(a[i]) != FoldAscii(b[i])) return false;
    }
    return true;
}

int NumberOf(std::string_view text) {
    if (text.empty() || text.size() > 2) return 0;
    int number = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return 0;
        number = number * 10 + (c - '0');
    }
    return number;
}

}  // namespace

std::string PictureTypeName(std::string_view nameOrNumber) {
    int number = NumberOf(nameOrNumber);
    if (number >= 1 && number <= static_cast<int>(kTypes.size())) return std::string(kTypes[number - 1]);
    for (std::string_view type : kTypes) {
        if (EqualsNoCase(type, nameOrNumber)) return std::string(type);
    }
    throw UsageError("unknown picture type '" + std::string(nameOrNumber) +
                     "' (a number from 1 to 20 or a name such as \"Front Album Cover\")");
}

}  // namespace host
