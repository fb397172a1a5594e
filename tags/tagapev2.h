#pragma once
// The APE tag (versions 1000 and 2000) at the end of a file, in front of an
// ID3v1 tag if there is one. A rewrite puts the new tag and the ID3v1 tag in
// place of everything from where the old tag began. No size field is trusted:
// only bytes that the items bear out, or a header that agrees with the footer,
// count as the tag's, and a tag whose items can't all be read is never
// rewritten, since that would lose them.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/clBuffer.h"
#include "support/clList.h"
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
    // After a read: the footer states items, and not all of them could be read.
    bool ItemsDamaged() const { return itemsDamaged_; }
    bool Write(const IDTags& tags, bool merge) override { return Prepare(tags, merge) && Commit(); }
    // Builds and checks the new tag in memory; the file doesn't change.
    bool Prepare(const IDTags& tags, bool merge);
    // Puts what Prepare built in place of the old tag; a failed write is undone.
    bool Commit();
    // After Prepare: whether Commit will change the file.
    bool Changes() const { return pendingChange_; }
    // Builds what deleting the whole tag (`names` null) or the entries of
    // `names` leaves; Commit writes it.
    bool PrepareDelete(const clStringList* names);
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
    // Why Write, Delete or DeleteTag last left the file as it was; null while
    // none did. Delete and DeleteTag report only through this.
    const char16_t* Failure = nullptr;

private:
    // What the last read proved of the tag's bytes; TagStart is the first byte
    // that a rewrite or a delete may replace.
    enum class Extent {
        kNone,         // no tag: TagStart is where one would go
        kWhole,        // the items fill the footer's size: the whole tag is known
        kFooter,       // the size isn't borne out, but the footer states no items: it alone is the tag
        kBracketed,    // items are damaged, but a header agrees with the footer: deletable, not rewritable
        kUnknown,      // the size isn't borne out and items are stated: nothing may be cut
        kUnreadable,   // the file couldn't be read
    };
    // The footer's version, size and item count repeated 32 bytes in front of the stated tag.
    bool HeaderAt(int64_t position, const ApeFrame& footer);
    bool Refuse(const char16_t* reason);
    // Why the tag may not be rewritten; null when it may.
    const char16_t* RewriteRefusal() const;
    // Puts `bytes` in place of everything from TagStart to the file's end;
    // null when it did, else why not.
    const char16_t* ReplaceTail(const clBuffer& bytes);

    Extent extent_ = Extent::kNone;
    bool itemsDamaged_ = false;
    // What Commit puts from TagStart to the file's end.
    clBuffer pending_;
    bool pendingChange_ = false;
    clString failureText_;   // a refusal that names what it refuses
    // The file names that the covers of the last read were stored under, by
    // their bytes: a cover whose bytes stay keeps its name, since a rewrite is
    // no reason to rename it.
    struct StoredName {
        uint64_t size;
        size_t fingerprint;
        std::string fileName;   // with its NUL
    };
    std::vector<StoredName> storedNames_;
    // The items of the last read, byte for byte: an item a write doesn't
    // change goes back as it was (its flags, a value's last NUL, a cover's
    // own key), and one the collection can't show (a locator) goes back too.
    struct RawItem {
        std::string bytes;
        int entry = -1;   // its entry in the read's collection; -1: not shown
    };
    std::vector<RawItem> rawItems_;
    static size_t Fingerprint(const uint8_t* bytes, size_t size);
    const std::string* StoredNameOf(const IDTag& entry) const;
    enum class Footer { kFailed, kAbsent, kPresent };
    struct Lookup {
        int64_t tagEnd = -1;      // the footer's end
        FileTail tail;
        ApeFrame footer;
    };
    Footer FindFooter(Lookup& lookup);
    // False, with Failure set, when a new entry's key may not be written.
    // `changed` tells whether the result differs from what it was.
    bool MergeInto(IDTags& result, const IDTags& old, const IDTags& tags, bool merge, bool& changed);
    // True when the walk read `count` items or fewer that fill `size` exactly.
    bool WalkItems(IDTags& tags, const uint8_t* items, uint32_t size, uint32_t count);
    void AddItem(IDTags& tags, const clString& name, bool isArt, uint32_t flags, const uint8_t* value,
                 uint32_t valueSize);
    clString DecodeText(const uint8_t* bytes, size_t count) const;
};
