// Writing the APE tag: the new tag and the ID3v1 tag behind it are built in
// one buffer before the file changes, then written in one piece over where the
// old tag began; no audio byte moves.

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tags/apeitemkeys.h"
#include "tags/changetexts.h"
#include "tags/picturenaming.h"
#include "tags/tagapev2.h"
#include "tags/tagtext.h"

namespace {

// Reasons for leaving the file as it was.
constexpr char16_t kDamaged[] =
    u"The APE tag is damaged: its items don't fill the size that its footer states, so it was left as it is.";
constexpr char16_t kUnreadableItems[] =
    u"The APE tag has items that can't be read; rewriting it would lose them, so it was left as it is.";
constexpr char16_t kUnreadableFile[] = u"The APE tag could not be read.";
constexpr char16_t kTooLarge[] = u"The APE tag would be too large.";
constexpr char16_t kNoMemory[] = u"Not enough memory for the APE tag.";
constexpr char16_t kNotChanged[] = u"The file could not be changed.";

// One item, ready to go into the file. A binary payload is referenced, not copied.
struct ApeItem {
    std::string key;
    std::string value;            // text, or the made-up file name of a cover
    const clBuffer* data = nullptr;
    ApeItemType type = kApeText;
    const std::string* raw = nullptr;   // an old item that goes back byte for byte

    uint64_t ValueSize() const { return value.size() + (data ? data->Size() : 0); }
    uint64_t Size() const { return raw ? raw->size() : kApeItemHeadBytes + key.size() + 1 + ValueSize(); }
};

// A reader of the format expects a file name in front of a cover; the path means nothing.
std::string PretendFileName(const clBuffer& data) {
    bool png = data.Size() >= 4 && std::memcmp(data.Data() + 1, "PNG", 3) == 0;
    std::string name = clString(png ? u"C:\\Pretend.png" : u"C:\\Pretend.jpg").ToAnsi();
    name.push_back('\0');
    return name;
}

std::string Encode(const clString& text, uint32_t version) {
    return version >= kApeVersion2 ? text.ToUtf8() : text.ToAnsi();
}

// `storedName`: the name a cover was read with, kept in front of the same bytes.
ApeItem MakeItem(const IDTag& entry, uint32_t version, const std::string* storedName) {
    ApeItem item;
    bool isArt = false;
    clString key = ApeKeyOfTagName(entry.Name, isArt);
    item.key = Encode(key, version);
    if (entry.Value.Empty() && !entry.Data.Empty()) {
        item.type = kApeBinary;
        item.data = &entry.Data;
        if (isArt) item.value = storedName ? *storedName : PretendFileName(entry.Data);
        return item;
    }
    item.value = Encode(entry.Value, version);
    // Several values of one name are stored apart, NUL between them. CR is one
    // byte in UTF-8 and in the ANSI page, never part of a longer sequence.
    if (IsMultiValueName(key.View())) {
        for (char& c : item.value) {
            if (c == '\r') c = '\0';
        }
    }
    if (version < kApeVersion2) item.value.push_back('\0');
    return item;
}

uint8_t* PutItem(uint8_t* out, const ApeItem& item) {
    if (item.raw) {
        std::memcpy(out, item.raw->data(), item.raw->size());
        return out + item.raw->size();
    }
    PutU32LE(out, static_cast<uint32_t>(item.ValueSize()));
    PutU32LE(out + 4, ApeFlagsOf(item.type));
    out += kApeItemHeadBytes;
    std::memcpy(out, item.key.data(), item.key.size());
    out += item.key.size() + 1;   // the key's NUL: the buffer is zeroed
    std::memcpy(out, item.value.data(), item.value.size());
    out += item.value.size();
    if (item.data && item.data->Size() > 0) {
        std::memcpy(out, item.data->Data(), item.data->Size());
        out += item.data->Size();
    }
    return out;
}

// The collection keeps a rating of 0 to 10, the file one of 0 to 5 in halves.
clString HalvedRating(const clString& value) {
    int32_t rating = static_cast<int32_t>(static_cast<uint32_t>(value.ToInt()));
    return clString::FromDouble(rating * 0.5, 1, false);
}

}  // namespace

void TagAPEv2::AdjustJukeBoxName(clString& name, const IDTags& existing) {
    clString composed(kJukeBoxPrefix);
    composed.Append(name);
    for (int i = 0; i < existing.Count(); ++i) {
        if (StartsWithNoCase(existing[i].Name.View(), composed.View())) {
            name = composed;
            return;
        }
    }
}

namespace {

bool SameData(const IDTag& a, const IDTag& b) {
    return a.Data.Size() == b.Data.Size() &&
           (a.Data.Size() == 0 || std::memcmp(a.Data.Data(), b.Data.Data(), a.Data.Size()) == 0);
}

bool SameEntry(const IDTag& a, const IDTag& b) {
    return a.Name == b.Name && a.Value == b.Value && SameData(a, b);
}

}  // namespace

size_t TagAPEv2::Fingerprint(const uint8_t* bytes, size_t size) {
    return std::hash<std::string_view>{}(std::string_view(reinterpret_cast<const char*>(bytes), size));
}

const std::string* TagAPEv2::StoredNameOf(const IDTag& entry) const {
    if (storedNames_.empty()) return nullptr;
    const size_t fingerprint = Fingerprint(entry.Data.Data(), entry.Data.Size());
    for (const StoredName& stored : storedNames_) {
        if (stored.size == entry.Data.Size() && stored.fingerprint == fingerprint) return &stored.fileName;
    }
    return nullptr;
}

// New entries replace those of the same name, art keys by number and type
// alone, or join at the end. An item that another application wrote under its
// prefix keeps the prefix. A key that `old` doesn't hold must be one the
// format allows.
bool TagAPEv2::MergeInto(IDTags& result, const IDTags& old, const IDTags& tags, bool merge, bool& changed) {
    changed = !merge;
    IDTags incoming(tags);
    for (int i = 0; i < incoming.Count(); ++i) {
        IDTag& entry = incoming[i];
        // Without merge the entries come in the file's form already.
        if (merge && EqualsNoCase(entry.Name.View(), u"rating")) entry.Value = HalvedRating(entry.Value);
        AdjustJukeBoxName(entry.Name, result);
        bool isArt = false;
        const std::string key = Encode(ApeKeyOfTagName(entry.Name, isArt), TagVersionNumber);
        if (!old.Find(entry.Name, true) && !IsWritableApeKey(key)) {
            failureText_ = clString::Format(u"\"%s\" can't be an APE item key: a key is 2 to 255 characters from "
                                            u"space to tilde, and not ID3, TAG, OggS or MP+.",
                                            entry.Name.Text());
            return Refuse(failureText_.Text());
        }
    }
    for (int i = 0; i < incoming.Count(); ++i) {
        IDTag* existing = result.Find(incoming[i].Name, true);
        if (existing && SameEntry(*existing, incoming[i])) continue;
        changed = true;
        if (existing) {
            *existing = incoming[i];
        } else {
            result.AddCopy(incoming[i]);
        }
    }
    return true;
}

namespace {

ApeItem CarriedItem(const std::string& bytes) {
    ApeItem item;
    item.raw = &bytes;
    return item;
}

size_t EntryHash(const IDTag& entry) {
    const std::hash<std::u16string_view> text;
    const std::string_view data(reinterpret_cast<const char*>(entry.Data.Data()), entry.Data.Size());
    return text(entry.Name.View()) ^ text(entry.Value.View()) * 31 ^ std::hash<std::string_view>{}(data) * 131;
}

// The items of `entries` and the tag size they make: items and footer, as the size field counts.
template <class NameOf, class RawOf>
void PrepareItems(const IDTags& entries, uint32_t version, NameOf storedName, RawOf rawOf,
                  std::vector<ApeItem>& items, uint64_t& tagSize) {
    items.reserve(static_cast<size_t>(entries.Count()));
    tagSize = kApeHeaderBytes;
    for (int i = 0; i < entries.Count(); ++i) {
        const std::string* raw = rawOf(entries[i]);
        items.push_back(raw ? CarriedItem(*raw) : MakeItem(entries[i], version, storedName(entries[i])));
        tagSize += items.back().Size();
    }
}

// Header (version 2000 only), items, footer, then `id3v1` when its first byte
// isn't 0: the bytes that go in place of the old tags.
bool BuildTail(const std::vector<ApeItem>& items, uint64_t tagSize, uint32_t version, const uint8_t* id3v1,
               clBuffer& buffer) {
    bool withTag = !items.empty();
    bool withHeader = withTag && version >= kApeVersion2;
    uint32_t tagBytes = withTag ? static_cast<uint32_t>(tagSize + (withHeader ? kApeHeaderBytes : 0)) : 0;
    uint32_t id3v1Bytes = id3v1[0] != 0 ? kId3v1Bytes : 0;
    if (!buffer.Resize(tagBytes + id3v1Bytes, true)) return false;
    uint8_t* out = buffer.Data();
    if (withTag) {
        ApeFrame frame{version, static_cast<uint32_t>(tagSize), static_cast<uint32_t>(items.size()), 0};
        if (withHeader) {
            frame.flags = kApeHasHeader | kApeIsHeader;
            frame.Put(out);
            out += kApeHeaderBytes;
        }
        for (const ApeItem& item : items) out = PutItem(out, item);
        frame.flags = withHeader ? kApeHasHeader : 0;
        frame.Put(out);
        out += kApeHeaderBytes;
    }
    if (id3v1Bytes > 0) std::memcpy(out, id3v1, id3v1Bytes);
    return true;
}

}  // namespace

bool TagAPEv2::Refuse(const char16_t* reason) {
    Failure = reason;
    return false;
}

const char16_t* TagAPEv2::RewriteRefusal() const {
    switch (extent_) {
    case Extent::kUnknown:
        return kDamaged;
    case Extent::kBracketed:
        return kUnreadableItems;
    case Extent::kUnreadable:
        return kUnreadableFile;
    default:
        return nullptr;
    }
}

// The file grows to its new size first, so that a full disk fails while the
// old tags are still whole. The old bytes are kept, so that a write or a cut
// that fails puts them back. Null when the tail was replaced, else why not.
const char16_t* TagAPEv2::ReplaceTail(const clBuffer& bytes) {
    TailSnapshot old;
    if (!old.Take(file, TagStart)) return kNotChanged;
    const int64_t size = old.FileSize();
    const int64_t newSize = TagStart + bytes.Size();
    if (newSize > size && !file.SetLength(newSize)) return file.SetLength(size) ? kNotChanged : kChangeDamaged;
    const bool replaced = (bytes.Size() == 0 || (file.Seek(TagStart) && file.Write(bytes.Data(), bytes.Size()))) &&
                          (newSize >= size || file.SetLength(newSize));
    if (replaced) return nullptr;
    return old.Restore(file) ? kChangeRestored : kChangeDamaged;
}

bool TagAPEv2::Prepare(const IDTags& tags, bool merge) {
    Failure = nullptr;
    pendingChange_ = false;
    pending_.Clear();
    if (!file.IsOpen()) return Refuse(kUnreadableFile);
    IDTags old;
    ReadRaw(old, false, true);   // for TagStart, the version and SavedID3v1
    if (const char16_t* refusal = RewriteRefusal()) return Refuse(refusal);
    if (TagVersionNumber == 0) TagVersionNumber = WriteVersion1 ? kApeVersion1 : kApeVersion2;
    const IDTags read(old);
    IDTags replaced;
    IDTags& result = merge ? old : replaced;
    bool changed = false;
    if (!MergeInto(result, old, tags, merge, changed)) return false;
    // Nothing to change: the old tag stays as it is, byte for byte.
    if (!changed) return true;

    // A tag that the reader would refuse, or one that finds no memory, is
    // refused here, before the file is touched.
    std::vector<ApeItem> items;
    uint64_t tagSize = 0;
    const auto storedName = [this](const IDTag& entry) { return StoredNameOf(entry); };
    // An entry the read showed, unchanged, goes back as the item it came from.
    std::unordered_multimap<size_t, const RawItem*> shown;
    for (const RawItem& raw : rawItems_) {
        if (raw.entry >= 0) shown.emplace(EntryHash(read[raw.entry]), &raw);
    }
    const auto rawOf = [&](const IDTag& entry) -> const std::string* {
        auto [from, to] = shown.equal_range(EntryHash(entry));
        for (auto it = from; it != to; ++it) {
            if (!SameEntry(read[it->second->entry], entry)) continue;
            const std::string* bytes = &it->second->bytes;
            shown.erase(it);
            return bytes;
        }
        return nullptr;
    };
    PrepareItems(result, TagVersionNumber, storedName, rawOf, items, tagSize);
    for (const RawItem& raw : rawItems_) {
        if (raw.entry >= 0) continue;
        items.push_back(CarriedItem(raw.bytes));
        tagSize += raw.bytes.size();
    }
    if (tagSize + kApeHeaderBytes > kApeLargestTag) return Refuse(kTooLarge);
    if (!BuildTail(items, tagSize, TagVersionNumber, SavedID3v1, pending_)) return Refuse(kNoMemory);
    pendingChange_ = true;
    return true;
}

bool TagAPEv2::Commit() {
    if (!pendingChange_) return true;
    pendingChange_ = false;
    const char16_t* reason = ReplaceTail(pending_);
    pending_.Clear();
    return reason == nullptr || Refuse(reason);
}

bool TagAPEv2::PrepareDelete(const clStringList* names) {
    Failure = nullptr;
    pendingChange_ = false;
    pending_.Clear();
    IDTags tags;
    ReadRaw(tags, false, true);
    if (!names) {
        if (extent_ == Extent::kNone) return true;
        // A tag with damaged items still goes whole when a header brackets it.
        if (extent_ == Extent::kUnknown || extent_ == Extent::kUnreadable) return Refuse(RewriteRefusal());
        if (SavedID3v1[0] != 0 && !pending_.Assign(SavedID3v1, kId3v1Bytes)) return Refuse(kNoMemory);
        pendingChange_ = true;
        return true;
    }
    // An item that can't be read may be the one named: say so rather than claim it gone.
    if (const char16_t* refusal = RewriteRefusal()) return Refuse(refusal);
    bool removed = false;
    for (int i = 0; i < names->Count(); ++i) {
        const clString& name = (*names)[i];
        if (IsArtKey(name)) {
            clString type;
            clString description;
            SplitArtKey(name, type, description);
            removed |= tags.RemoveArt(type, description);
            continue;
        }
        clString adjusted = name;
        AdjustJukeBoxName(adjusted, tags);
        removed |= tags.Remove(adjusted);
    }
    // The collection is in the file's form, so Prepare must not convert it again.
    return !removed || Prepare(tags, false);
}

void TagAPEv2::Delete() {
    if (PrepareDelete(nullptr)) Commit();
}

void TagAPEv2::DeleteTag(const clString& name) {
    clStringList names;
    names.AddCopy(name);
    if (PrepareDelete(&names)) Commit();
}
