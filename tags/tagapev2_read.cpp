// Reading the APE tag: find the footer at the file's end, read the items in one
// go and turn them into entries.

#include <cstring>
#include <string>
#include <string_view>

#include "tags/apeitemkeys.h"
#include "tags/tagapev2.h"
#include "tags/tagtext.h"

namespace {

constexpr int64_t kLargestRating = int64_t{1} << 53;

// The file keeps a rating of 0 to 5 in halves, the collection one of 0 to 10.
clString DoubledRating(const clString& value) {
    double doubled = value.ToDouble() * 2;
    if (!(doubled < static_cast<double>(kLargestRating))) doubled = static_cast<double>(kLargestRating);
    if (!(doubled > -static_cast<double>(kLargestRating))) doubled = -static_cast<double>(kLargestRating);
    return clString::FromInt(static_cast<int64_t>(doubled));
}

void ToCollectionForm(IDTags& tags) {
    for (int i = 0; i < tags.Count(); ++i) {
        IDTag& entry = tags[i];
        if (StartsWithNoCase(entry.Name.View(), TagAPEv2::kJukeBoxPrefix)) {
            entry.Name = clString(entry.Name.View().substr(TagAPEv2::kJukeBoxPrefix.size()));
        }
        if (EqualsNoCase(entry.Name.View(), u"rating")) entry.Value = DoubledRating(entry.Value);
    }
}

}  // namespace

void TagAPEv2::SetOption(const clString& name) {
    if (name.View() == u"APEWriteAPE1Tag") WriteVersion1 = true;
}

TagAPEv2::Footer TagAPEv2::FindFooter(Lookup& lookup) {
    if (!file.IsOpen()) return Footer::kFailed;
    bool failed = false;
    int64_t size = file.Size(&failed);
    if (failed) return Footer::kFailed;
    lookup.tagEnd = size;
    if (size < static_cast<int64_t>(kTailBytes)) return Footer::kAbsent;
    if (!ReadFileTail(file, lookup.tail)) return Footer::kFailed;
    if (lookup.tail.HasId3v1()) lookup.tagEnd -= kId3v1Bytes;
    // Too little room in front of an ID3v1 tag for a footer: there is no APE tag.
    if (lookup.tagEnd < static_cast<int64_t>(kApeHeaderBytes)) return Footer::kAbsent;
    uint8_t footer[kApeHeaderBytes];
    if (!file.Seek(lookup.tagEnd - kApeHeaderBytes)) return Footer::kFailed;
    if (file.Read(footer, kApeHeaderBytes) != kApeHeaderBytes) return Footer::kFailed;
    if (!ApeFrame::HasMagic(footer)) return Footer::kAbsent;
    lookup.footer = ApeFrame::From(footer);
    return lookup.footer.KnownVersion() ? Footer::kPresent : Footer::kAbsent;
}

bool TagAPEv2::Exists() {
    Lookup lookup;
    return FindFooter(lookup) == Footer::kPresent;
}

bool TagAPEv2::HeaderAt(int64_t position, const ApeFrame& footer) {
    uint8_t bytes[kApeHeaderBytes];
    if (position < 0 || !file.Seek(position) || file.Read(bytes, kApeHeaderBytes) != kApeHeaderBytes) return false;
    if (!ApeFrame::HasMagic(bytes)) return false;
    ApeFrame header = ApeFrame::From(bytes);
    return header.version == footer.version && header.size == footer.size;
}

clString TagAPEv2::DecodeText(const uint8_t* bytes, size_t count) const {
    std::string_view text(reinterpret_cast<const char*>(bytes), count);
    return TagVersionNumber >= kApeVersion2 ? clString::FromUtf8(text) : clString::FromAnsi(text);
}

void TagAPEv2::AddItem(IDTags& tags, const clString& name, bool isArt, uint32_t flags, const uint8_t* value,
                       uint32_t valueSize) {
    switch (ApeItemTypeOf(flags)) {
    case kApeText: {
        // A NUL separates the values of a multi-value item; one in the last byte ends the text.
        std::string text(reinterpret_cast<const char*>(value), valueSize);
        if (text.back() == '\0') text.pop_back();
        for (char& c : text) {
            if (c == '\0') c = '\r';
        }
        tags.Add(name, DecodeText(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
        return;
    }
    case kApeBinary: {
        if (!isArt) {
            tags.AddBinary(name, value, valueSize);
            return;
        }
        // A cover's value begins with a file name that means nothing to us.
        const void* nul = std::memchr(value, 0, valueSize);
        if (!nul) return;
        uint32_t skip = static_cast<uint32_t>(static_cast<const uint8_t*>(nul) - value) + 1;
        if (skip == valueSize) return;
        tags.AddBinary(name, value + skip, valueSize - skip);
        storedNames_.push_back(StoredName{valueSize - skip, Fingerprint(value + skip, valueSize - skip),
                                          std::string(reinterpret_cast<const char*>(value), skip)});
        return;
    }
    default:
        return;   // locators and reserved items carry nothing for us
    }
}

bool TagAPEv2::WalkItems(IDTags& tags, const uint8_t* items, uint32_t size, uint32_t count) {
    int artCounter = 0;
    uint32_t position = 0;
    for (uint32_t left = count; left > 0 && position < size; --left) {
        if (size - position < kApeItemHeadBytes) return false;
        uint32_t valueSize = GetU32LE(items + position);
        uint32_t flags = GetU32LE(items + position + 4);
        uint32_t keyAt = position + kApeItemHeadBytes;
        uint32_t room = size - keyAt;
        const void* nul = std::memchr(items + keyAt, 0, room);
        uint32_t keyLength = nul ? static_cast<uint32_t>(static_cast<const uint8_t*>(nul) - (items + keyAt)) : room;
        if (uint64_t{keyLength} + 1 + valueSize > room) return false;
        position = keyAt + keyLength + 1 + valueSize;
        if (keyLength == 0 || valueSize == 0) continue;
        bool isArt = false;
        clString name = TagNameOfApeKey(DecodeText(items + keyAt, keyLength), artCounter, isArt);
        const int shown = tags.Count();
        AddItem(tags, name, isArt, flags, items + keyAt + keyLength + 1, valueSize);
        const uint32_t itemAt = keyAt - kApeItemHeadBytes;
        rawItems_.push_back({std::string(reinterpret_cast<const char*>(items + itemAt), position - itemAt),
                             tags.Count() > shown ? shown : -1});
    }
    return position == size;
}

bool TagAPEv2::ReadRaw(IDTags& tags, bool wantVersion, bool keepRaw) {
    tags.Clear();
    TagStart = -1;
    TagVersionNumber = 0;
    std::memset(SavedID3v1, 0, sizeof SavedID3v1);
    storedNames_.clear();
    rawItems_.clear();
    itemsDamaged_ = false;
    extent_ = Extent::kUnreadable;
    if (!file.IsOpen()) return false;

    Lookup lookup;
    Footer found = FindFooter(lookup);
    const int64_t tagEnd = lookup.tagEnd;
    TagStart = tagEnd;
    if (lookup.tail.HasId3v1()) std::memcpy(SavedID3v1, lookup.tail.Id3v1(), kId3v1Bytes);
    if (found == Footer::kFailed) return false;
    extent_ = Extent::kNone;
    if (found == Footer::kAbsent) return true;

    // Until the items bear out the footer's size, only the footer is proven to
    // be the tag's, and it may go only when it states no items.
    const ApeFrame& footer = lookup.footer;
    TagVersionNumber = footer.version;
    extent_ = footer.count == 0 ? Extent::kFooter : Extent::kUnknown;
    if (extent_ == Extent::kFooter) TagStart = tagEnd - kApeHeaderBytes;
    uint32_t size = footer.size;
    if (size < kApeHeaderBytes || size > tagEnd || size > kApeLargestTag) return false;
    uint32_t itemBytes = size - kApeHeaderBytes;
    clBuffer items;
    if (!items.Resize(itemBytes)) return false;
    if (!file.Seek(tagEnd - size) || file.Read(items.Data(), itemBytes) != itemBytes) {
        extent_ = Extent::kUnreadable;
        TagStart = tagEnd;
        return false;
    }

    bool filled = WalkItems(tags, items.Data(), itemBytes, footer.count);
    itemsDamaged_ = !filled && footer.count > 0;
    int64_t headerAt = tagEnd - size - kApeHeaderBytes;
    bool header = (footer.flags & kApeHasHeader) && HeaderAt(headerAt, footer);
    if (filled) {
        extent_ = Extent::kWhole;
        TagStart = header ? headerAt : tagEnd - size;
    } else if (header && extent_ == Extent::kUnknown) {
        extent_ = Extent::kBracketed;
        TagStart = headerAt;
    }

    if (wantVersion && tags.Count() > 0) {
        tags.Add(clString(u"TagVersion"), clString(TagVersionNumber < kApeVersion2 ? u"APEv1" : u"APEv2"));
    }
    if (!keepRaw) ToCollectionForm(tags);
    return true;
}
