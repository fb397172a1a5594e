#pragma once
// The one model of a file's tags: an ordered collection of IDTag (name, text
// value, binary data). Several values of one name are joined by CR inside
// Value. The tag blob is its flat form at the host's border.

#include <cstdint>
#include <memory>
#include <vector>

#include "support/clBuffer.h"
#include "support/clList.h"
#include "support/clString.h"

struct IDTag {
    clString Name;
    clString Value;
    clBuffer Data;
};

class IDTags {
public:
    IDTags() = default;
    IDTags(const IDTags& other);
    IDTags& operator=(const IDTags& other);
    IDTags(IDTags&&) noexcept = default;
    IDTags& operator=(IDTags&&) noexcept = default;
    ~IDTags() = default;

    int Count() const { return static_cast<int>(entries_.size()); }
    IDTag& operator[](int index) { return *entries_[static_cast<size_t>(index)]; }
    const IDTag& operator[](int index) const { return *entries_[static_cast<size_t>(index)]; }

    IDTag* Add();
    IDTag* Add(const clString& name, const clString& value);
    IDTag* AddCopy(const IDTag& source);
    IDTag* AddBinary(const clString& name, const void* bytes, uint32_t size);
    IDTag* Find(const clString& name, bool strip) const;
    bool Remove(const clString& name);
    void RemoveAt(int index);
    void Clear();
    clString TakeVersion();

    void Serialise(clBuffer& buffer) const;
    void Parse(const void* bytes, int64_t size);

    // Picture naming (art keys).
    IDTag* FindFirstArt(clString& typeName, clString& description) const;
    bool RemoveArt(const clString& typeName, const clString& description);
    void RemoveHidden();

    mutable IDTag* Current = nullptr;   // the entry touched last; a cursor, not an owner

private:
    std::vector<std::unique_ptr<IDTag>> entries_;
};

// A copy of `name`; with `strip`, an art key is cut in front of "<subdesc>".
clString NormalisedTagName(const clString& name, bool strip);
