#include "tags/picturenaming.h"

#include <string_view>

#include "tags/idtags.h"
#include "tags/tagtext.h"

namespace {

// Numbered as the picture type byte of ID3v2; 0 has no name on purpose.
constexpr std::u16string_view kPictureTypes[kPictureTypeCount] = {
    u"32x32 Icon",         u"Other Icon",         u"Front Album Cover",  u"Back Album Cover",
    u"Leaflet Page",       u"Media",              u"Lead Artist",        u"Artist",
    u"Conductor",          u"Band",               u"Composer",           u"Writer",
    u"Recording Location", u"During Recording",   u"During Performance", u"Video Capture",
    u"A Bright Coloured Fish", u"Illustration",   u"Artist Logo",        u"Publisher Logo",
};

// The type starts behind the first "_" after the prefix, i.e. behind the number.
constexpr size_t kTypeSearchStart = std::u16string_view(kArtKeyPrefix).size();

bool IsKeptHiddenName(std::u16string_view name) {
    return StartsWithNoCase(name, u"_riff_") || EqualsNoCase(name, u"_cdtoc") || EqualsNoCase(name, u"_crc");
}

}  // namespace

clString PictureTypeName(int number) {
    if (number < 1 || number > kPictureTypeCount) return clString();
    return clString(kPictureTypes[number - 1]);
}

clString PictureTypeKeyPart(int number) {
    if (number < 1 || number > kPictureTypeCount) return clString();
    clString part(u"_");
    part.Append(PictureTypeName(number));
    return part;
}

int PictureTypeFromName(const clString& name) {
    for (int i = 0; i < kPictureTypeCount; ++i) {
        if (EqualsNoCase(name.View(), kPictureTypes[i])) return i + 1;
    }
    return kFrontAlbumCover;
}

void SplitArtKey(const clString& key, clString& typeName, clString& description) {
    typeName.Clear();
    description.Clear();
    std::u16string_view text = key.View();
    if (text.size() <= kTypeSearchStart) return;
    size_t underscore = text.find(u'_', kTypeSearchStart);
    if (underscore == std::u16string_view::npos) return;
    std::u16string_view type = text.substr(underscore + 1);
    if (!type.empty()) {
        size_t marker = type.find(kSubdescMarker);
        if (marker != std::u16string_view::npos) {
            description = clString(type.substr(marker + std::u16string_view(kSubdescMarker).size()));
            type = type.substr(0, marker);
        }
    }
    typeName = clString(type);
}

clString MakeArtKey(int number, const clString& typeName, const clString& description) {
    clString key(kArtKeyPrefix);
    key.Append(clString::FromInt(number));
    key.Append(u'_');
    key.Append(typeName);
    if (!description.Empty()) {
        key.Append(kSubdescMarker);
        key.Append(description);
    }
    return key;
}

bool IsArtKey(const clString& name) { return StartsWithNoCase(name.View(), kArtKeyPrefix); }

IDTag* IDTags::FindFirstArt(clString& typeName, clString& description) const {
    typeName.Clear();
    description.Clear();
    clString prefix(kArtKeyPrefix);
    prefix.Append(u'1');
    for (int i = 0; i < Count(); ++i) {
        IDTag& entry = *entries_[static_cast<size_t>(i)];
        Current = &entry;
        if (!StartsWithNoCase(entry.Name.View(), prefix.View())) continue;
        SplitArtKey(entry.Name, typeName, description);
        return &entry;
    }
    return nullptr;
}

bool IDTags::RemoveArt(const clString& typeName, const clString& description) {
    IDTags kept;
    int number = 0;
    bool found = false;
    for (int i = 0; i < Count(); ++i) {
        const IDTag& entry = *entries_[static_cast<size_t>(i)];
        Current = entries_[static_cast<size_t>(i)].get();
        if (!IsArtKey(entry.Name)) continue;
        clString type;
        clString desc;
        SplitArtKey(entry.Name, type, desc);
        // Type and description each match on their own, case-sensitively.
        if (type.View() == typeName.View() || desc.View() == description.View()) {
            found = true;
            continue;
        }
        IDTag* copy = kept.Add();
        copy->Name = MakeArtKey(++number, type, desc);
        copy->Data = entry.Data;
    }
    if (!found) return false;
    RemoveHidden();
    for (int i = 0; i < kept.Count(); ++i) AddCopy(kept[i]);
    return true;
}

void IDTags::RemoveHidden() {
    for (int i = Count() - 1; i >= 0; --i) {
        std::u16string_view name = entries_[static_cast<size_t>(i)]->Name.View();
        if (name.empty() || name.front() != u'_' || IsKeptHiddenName(name)) continue;
        RemoveAt(i);
    }
}
