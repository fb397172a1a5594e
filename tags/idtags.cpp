#include "tags/idtags.h"

#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "tags/bytesle.h"
#include "tags/picturenaming.h"

namespace {

bool SameName(const clString& a, const clString& b) {
    return clString::Compare(a.Text(), b.Text(), 0, true) == 0;
}

// The blob is little-endian and unaligned: every read and write goes by bytes.
int32_t GetI32(const uint8_t* at) { return static_cast<int32_t>(GetU32LE(at)); }

char16_t GetUnit(const uint8_t* at) { return static_cast<char16_t>(at[0] | (at[1] << 8)); }

uint8_t* PutU32(uint8_t* at, uint32_t value) {
    PutU32LE(at, value);
    return at + 4;
}

// The string's units and its NUL.
uint8_t* PutText(uint8_t* at, const clString& text) {
    for (char16_t unit : text.View()) {
        *at++ = static_cast<uint8_t>(unit);
        *at++ = static_cast<uint8_t>(unit >> 8);
    }
    *at++ = 0;
    *at++ = 0;
    return at;
}

uint64_t EntryBytes(const IDTag& tag) {
    return 2 * (static_cast<uint64_t>(tag.Name.Size()) + static_cast<uint64_t>(tag.Value.Size()) + 2) +
           tag.Data.Size();
}

// Reads one NUL-ended text of at most left/2 units. Without a NUL in reach the
// text stays empty and nothing is consumed, so the bytes fall to the next field.
void ReadText(const uint8_t* bytes, int64_t& position, int64_t& left, clString& text) {
    const int64_t units = left / 2;
    const uint8_t* start = bytes + position;
    for (int64_t i = 0; i < units; ++i) {
        if (GetUnit(start + 2 * i) != 0) continue;
        std::u16string value(static_cast<size_t>(i), u'\0');
        for (int64_t k = 0; k < i; ++k) value[static_cast<size_t>(k)] = GetUnit(start + 2 * k);
        text = clString(std::u16string_view(value));
        position += 2 * (i + 1);
        left -= 2 * (i + 1);
        return;
    }
}

}  // namespace

clString NormalisedTagName(const clString& name, bool strip) {
    if (!strip || !IsArtKey(name)) return name;
    // The prefix test folds case; the marker search does not.
    const size_t marker = name.View().find(kSubdescMarker);
    if (marker == std::u16string_view::npos) return name;
    clString cut(name.View().substr(0, marker));
    cut.tag = name.tag;
    return cut;
}

IDTags::IDTags(const IDTags& other) {
    for (const auto& entry : other.entries_) AddCopy(*entry);
}

IDTags& IDTags::operator=(const IDTags& other) {
    if (this == &other) return *this;
    IDTags copy(other);
    *this = std::move(copy);
    return *this;
}

IDTag* IDTags::Add() {
    entries_.push_back(std::make_unique<IDTag>());
    Current = entries_.back().get();
    return Current;
}

IDTag* IDTags::Add(const clString& name, const clString& value) {
    IDTag* tag = Add();
    tag->Name = name;
    tag->Value = value;
    return tag;
}

IDTag* IDTags::AddCopy(const IDTag& source) {
    // `source` may be one of ours: the list holds pointers, so it doesn't move.
    IDTag* tag = Add();
    *tag = source;
    return tag;
}

IDTag* IDTags::AddBinary(const clString& name, const void* bytes, uint32_t size) {
    IDTag* tag = Add();
    tag->Name = name;
    if (size != 0) tag->Data.Assign(bytes, size);
    return tag;
}

IDTag* IDTags::Find(const clString& name, bool strip) const {
    const clString wanted = NormalisedTagName(name, strip);
    for (const auto& entry : entries_) {
        Current = entry.get();
        if (SameName(NormalisedTagName(entry->Name, strip), wanted)) return Current;
    }
    Current = nullptr;
    return nullptr;
}

bool IDTags::Remove(const clString& name) {
    bool removed = false;
    for (int index = Count() - 1; index >= 0; --index) {
        if (!SameName(entries_[static_cast<size_t>(index)]->Name, name)) continue;
        RemoveAt(index);
        removed = true;
    }
    return removed;
}

void IDTags::RemoveAt(int index) {
    if (index < 0 || index >= Count()) return;
    const auto at = entries_.begin() + index;
    if (at->get() == Current) Current = nullptr;
    entries_.erase(at);
}

void IDTags::Clear() {
    // Release the storage too, as a new collection would have it.
    std::vector<std::unique_ptr<IDTag>>().swap(entries_);
    Current = nullptr;
}

clString IDTags::TakeVersion() {
    const clString versionName(u"TagVersion");
    for (int index = 0; index < Count(); ++index) {
        IDTag& entry = *entries_[static_cast<size_t>(index)];
        if (!SameName(entry.Name, versionName)) continue;
        clString version = std::move(entry.Value);
        RemoveAt(index);
        return version;
    }
    return clString();
}

void IDTags::Serialise(clBuffer& buffer) const {
    uint64_t total = 4;
    for (const auto& entry : entries_) total += EntryBytes(*entry);
    if (total > UINT32_MAX) throw std::overflow_error("tag blob too large");

    buffer.Resize(static_cast<uint32_t>(total));
    uint8_t* at = buffer.Data();
    if (!at) throw std::bad_alloc();
    at = PutU32(at, static_cast<uint32_t>(Count()));
    for (const auto& entry : entries_) {
        at = PutU32(at, static_cast<uint32_t>(EntryBytes(*entry)));
        at = PutText(at, entry->Name);
        at = PutText(at, entry->Value);
        if (entry->Data.Size() != 0) {
            std::memcpy(at, entry->Data.Data(), entry->Data.Size());
            at += entry->Data.Size();
        }
    }
}

// Forgiving: keeps what it has and stops silently at the first thing that
// doesn't fit. An entry that was begun stays, however little of it was read.
void IDTags::Parse(const void* source, int64_t size) {
    Clear();
    const auto* bytes = static_cast<const uint8_t*>(source);
    if (!bytes || size < 5) return;
    const int32_t stated = GetI32(bytes);
    if (stated < 1) return;

    int64_t position = 4;
    for (int32_t read = 0;;) {
        if (size - position < 4) return;
        const int32_t length = GetI32(bytes + position);
        if (length < 0 || position + length > size) return;
        position += 4;
        int64_t left = static_cast<int64_t>(length) - 4;

        IDTag* tag = Add();
        if (left > 0) ReadText(bytes, position, left, tag->Name);
        if (left < 1) return;
        ReadText(bytes, position, left, tag->Value);
        if (left != 0) {
            tag->Data.Assign(bytes + position, static_cast<uint32_t>(left));
            position += left;
        }

        ++read;
        if (position >= size || read >= stated) return;
    }
}
