#include "tags/apeitemkeys.h"

#include <string_view>

#include "tags/picturenaming.h"
#include "tags/tagtext.h"

namespace {

constexpr std::u16string_view kCoverArt = u"Cover Art (";

struct KeyPair {
    std::u16string_view key;
    std::u16string_view name;
};

constexpr KeyPair kRenamed[] = {
    {u"Tool Name", u"Encoded by"},
    {u"BPM", u"tempo"},
    {u"CRC", u"_crc"},
};

}  // namespace

clString TagNameOfApeKey(const clString& key, int& artCounter, bool& isArt) {
    isArt = false;
    std::u16string_view view = key.View();
    if (StartsWithNoCase(view, kCoverArt)) {
        isArt = true;
        clString name(kArtKeyPrefix);
        name.Append(clString::FromInt(++artCounter));
        std::u16string_view side = view.substr(kCoverArt.size() - 1);
        if (EqualsNoCase(side, u"(front)")) name.Append(PictureTypeKeyPart(kFrontAlbumCover));
        if (EqualsNoCase(side, u"(back)")) name.Append(PictureTypeKeyPart(kBackAlbumCover));
        return name;
    }
    for (const KeyPair& pair : kRenamed) {
        if (EqualsNoCase(view, pair.key)) return clString(pair.name);
    }
    return key;
}

clString ApeKeyOfTagName(const clString& name, bool& isArt) {
    isArt = false;
    if (IsArtKey(name)) {
        isArt = true;
        clString type;
        clString description;
        SplitArtKey(name, type, description);
        bool back = !type.Empty() && PictureTypeFromName(type) == kBackAlbumCover;
        return clString(back ? u"Cover Art (back)" : u"Cover Art (front)");
    }
    for (const KeyPair& pair : kRenamed) {
        if (EqualsNoCase(name.View(), pair.name)) return clString(pair.key);
    }
    return name;
}

bool IsWritableApeKey(std::string_view key) {
    if (key.size() < 2 || key.size() > 255) return false;
    for (const char c : key) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte > 0x7E) return false;
    }
    const clString wide = clString::FromUtf8(key);
    for (std::u16string_view reserved : {u"ID3", u"TAG", u"OggS", u"MP+"}) {
        if (EqualsNoCase(wide.View(), reserved)) return false;
    }
    return true;
}
