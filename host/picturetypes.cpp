#include "host/picturetypes.h"

#include <array>

#include "host/errors.h"
#include "host/text.h"

namespace host {
namespace {

struct PictureType {
    std::string_view shortName;
    std::string_view name;   // as it stands in an art key
};

// Number 0 has no name of its own among the key forms: the ID3v2 engine reads
// it as "Undefined", and every engine takes that for a front cover.
constexpr std::array<PictureType, 21> kTypes = {{
    {"other", "Undefined"},
    {"icon", "32x32 Icon"},
    {"other-icon", "Other Icon"},
    {"front", "Front Album Cover"},
    {"back", "Back Album Cover"},
    {"leaflet", "Leaflet Page"},
    {"media", "Media"},
    {"lead-artist", "Lead Artist"},
    {"artist", "Artist"},
    {"conductor", "Conductor"},
    {"band", "Band"},
    {"composer", "Composer"},
    {"writer", "Writer"},
    {"location", "Recording Location"},
    {"recording", "During Recording"},
    {"performance", "During Performance"},
    {"video", "Video Capture"},
    {"fish", "A Bright Coloured Fish"},
    {"illustration", "Illustration"},
    {"artist-logo", "Artist Logo"},
    {"publisher-logo", "Publisher Logo"},
}};

// -1 when the text is not a number of one or two digits.
int NumberOf(std::string_view text) {
    if (text.empty() || text.size() > 2) return -1;
    int number = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return -1;
        number = number * 10 + (c - '0');
    }
    return number;
}

}  // namespace

std::string PictureTypeName(std::string_view nameOrNumber) {
    const int number = NumberOf(nameOrNumber);
    if (number >= 0 && number < static_cast<int>(kTypes.size())) return std::string(kTypes[number].name);
    for (const PictureType& type : kTypes) {
        if (EqualsNoCase(type.shortName, nameOrNumber) || EqualsNoCase(type.name, nameOrNumber)) {
            return std::string(type.name);
        }
    }
    throw UsageError("unknown picture type '" + std::string(nameOrNumber) +
                     "' (a number from 0 to 20 or a name such as front or back; see write --help)");
}

std::string PictureTypeList() {
    std::string list;
    for (size_t number = 0; number < kTypes.size(); ++number) {
        std::string line = (number < 10 ? "   " : "  ") + std::to_string(number) + "  ";
        line += kTypes[number].shortName;
        line.append(kTypes[number].shortName.size() < 16 ? 16 - kTypes[number].shortName.size() : 1, ' ');
        line += kTypes[number].name;
        list += line + "\n";
    }
    return list;
}

}  // namespace host
