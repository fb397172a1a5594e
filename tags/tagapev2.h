#pragma once
// The APE tag (versions 1000 and 2000) at the end of a file, in front of an
// ID3v1 tag if there is one. A rewrite cuts the file back to where the old tag
// began and writes the tag anew there, then puts the ID3v1 tag back behind it.

#include <cstdint>
#include <string_view>

#include "tags/apeformat.h"
#include "tags/basetag.h"
#include "tags/filetail.h"

class TagAPEv2 : public BaseTag {
public:
    explicit TagAPEv2(const clFile& owner) : BaseTag(owner) {}

    void SetOption(const clString& name) override;
    clString TagName() const override { return clString(u"APE"); }
    bool Read(IDTags& tags, bool wantVersion) override { return ReadRaw(tags, wantVersion, false); }
    // With `keepRaw` names and values stay in the file's form: the writer's form.
    bool ReadRaw(IDTags& tags, bool wantVersion, bool keepRaw);
    bool Exists() override;
    bool Write(const IDTags& tags, bool merge) override;
    void Delete() override;
    void DeleteTag(const clString& name) override;

    // Another application's items carry this in front of their keys.
    static constexpr std::u16string_view kJukeBoxPrefix = u"Media JukeBox: ";
    // kJukeBoxPrefix + name, when an entry of `existing` begins with that.
    static void AdjustJukeBoxName(clString& name, const IDTags& existing);

    uint32_t TagVersionNumber = 0;   // 0 without a tag, else 1000 or 2000
    // After a read: the tag's first byte, header included; without a tag,
    // where one would go. -1 until the file's size was known.
    int64_t TagStart = -1;
    bool WriteVersion1 = false;      // "APEWriteAPE1Tag"
    uint8_t SavedID3v1[kId3v1Bytes] = {};   // the ID3v1 tag behind ours; first byte 0: none

private:
    enum class Footer { kFailed, kAbsent, kPresent };
    struct Lookup {
        int64_t tagEnd = -1;      // the footer's end
        FileTail tail;
        ApeFrame footer;
    };
    Footer FindFooter(Lookup& lookup);
    bool HeaderAt(int64_t position);
    static void MergeInto(IDTags& result, const IDTags& tags, bool merge);
    bool WalkItems(IDTags& tags, const uint8_t* items, uint32_t size, uint32_t count);
    void AddItem(IDTags& tags, const clString& name, bool isArt, uint32_t flags, const uint8_t* value,
                 uint32_t valueSize);
    clString DecodeText(const uint8_t* bytes, size_t count) const;
};
