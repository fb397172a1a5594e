// The name tables of the Matroska engine and the small text rules around them.

#include "codecs/decoders/ffmpeg/qel-matroska/matroskarecord.h"

namespace Matroska {

const std::array<NumberPairRow, 2> NumberPairs = {{
    {"track", "TRACK_NUMBER", "TOTAL_TRACKS"},
    {"disc", "DISC_NUMBER", "TOTAL_DISCS"},
}};

const std::array<FriendlyNameRow, 3> FriendlyNames = {{
    {"date", "DATE_RECORDED"},
    {"release date", "DATE_RELEASED"},
    {"album artist", "ALBUM_ARTIST"},
}};

// The order matters for ties: an earlier row wins.
const std::array<TargetLevelRow, 12> TargetLevels = {{
    {"ALBUM", "TITLE", 50},
    {"TITLE", "TITLE", 30},
    {"ARTIST", "ARTIST", 30},
    {"ALBUM_ARTIST", "ARTIST", 50},
    {"TRACK_NUMBER", "PART_NUMBER", 30},
    {"TOTAL_TRACKS", "TOTAL_PARTS", 50},
    {"DISC_NUMBER", "PART_NUMBER", 50},
    {"TOTAL_DISCS", "TOTAL_PARTS", 60},
    {"REPLAYGAIN_TRACK_GAIN", "REPLAYGAIN_GAIN", 30},
    {"REPLAYGAIN_TRACK_PEAK", "REPLAYGAIN_PEAK", 30},
    {"REPLAYGAIN_ALBUM_GAIN", "REPLAYGAIN_GAIN", 50},
    {"REPLAYGAIN_ALBUM_PEAK", "REPLAYGAIN_PEAK", 50},
}};

const std::array<CoverNameRow, 7> CoverNames = {{
    {"cover", u"Front Album Cover"},
    {"front cover", u"Front Album Cover"},
    {"back cover", u"Back Album Cover"},
    {"back", u"Back Album Cover"},
    {"disc", u"Media"},
    {"media", u"Media"},
    {"artist", u"Artist"},
}};

std::string UpperAscii(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

bool EqualsNoCaseAscii(const std::string& a, const std::string& b) { return UpperAscii(a) == UpperAscii(b); }

bool StartsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

std::string StripExtension(const std::string& fileName) {
    const size_t dot = fileName.rfind('.');
    return dot == std::string::npos ? fileName : fileName.substr(0, dot);
}

clString AttachmentArtKey(int index, const std::string& fileName) {
    clString key(u"_albumart_");
    key.Append(clString::FromInt(index));
    clString stem = clString::FromUtf8(StripExtension(fileName));
    for (const CoverNameRow& row : CoverNames) {
        if (clString::EqualsNoCase(stem.Text(), clString::FromUtf8(row.stem).Text())) {
            stem = clString(row.pictureType);
            break;
        }
    }
    key.Append(u"_");
    key.Append(stem);
    return key;
}

}  // namespace Matroska
