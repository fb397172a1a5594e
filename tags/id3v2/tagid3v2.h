#pragma once
// The ID3v2 tag at `tagOffset` (the start of the file in every flow): the
// adapter between the ID3v2 engine and the plug-in's tag collection.

#include <cstdint>
#include <vector>

#include "tags/basetag.h"
#include "tags/id3v2/id3frames.h"
#include "tags/id3v2/tagvalues.h"

class TagID3v2 : public BaseTag {
public:
    explicit TagID3v2(const clFile& owner) : BaseTag(owner) {}

    void SetOption(const clString& name) override;
    clString TagName() const override { return clString(u"ID3v2"); }
    bool Read(IDTags& tags, bool wantVersion) override;
    bool Exists() override { return tagSizeOnDisk() != 0; }
    // `deleteOnly`: the names in `tags` are removed, their values don't matter.
    bool Write(const IDTags& tags, bool deleteOnly) override { return Prepare(tags, deleteOnly) && Commit(); }
    // Renders the new tag to memory; the file doesn't change.
    bool Prepare(const IDTags& tags, bool deleteOnly);
    // Puts what Prepare rendered in place of the old tag; a failed write is undone.
    bool Commit();
    void Delete() override;
    void DeleteTag(const clString& name) override;

    // The tag's whole size in bytes, footer included; 0 when there is no usable tag.
    uint64_t tagSizeOnDisk();
    // Fills `tag` from the file; false, with `tag` cleared, when it can't.
    bool readTagFrom(id3parser::id3tag& tag, clFile& source, uint64_t position);
    // Joins the values of a band name with a slash that reading split apart.
    static void rejoinSlashName(clString& value);
    // The text of such a name is one value even when it holds a CR.
    static bool isSingleValueName(const clString& name);

    uint32_t encodingChoice = 0;   // 0 single-byte, 1 UTF-16, 2 UTF-8
    uint32_t versionChoice = 2;    // 3 writes a new tag as 2.4; all else as 2.3
    uint64_t tagOffset = 0;
    uint8_t fullDateInYear = 0;
    uint8_t strictYearDate = 0;
    uint32_t maxPadding = 0;
    uint32_t alignment = 1;
    IDTags frameNames;             // frame ID (Name) to tag name (Value)
    // Why Write, Delete or DeleteTag last left the file as it was; null while
    // none did. Delete and DeleteTag report only through this.
    const char16_t* Failure = nullptr;

private:
    // What Prepare left for Commit: the new tag and the old tag's bytes.
    std::vector<uint8_t> rendered_;
    std::vector<uint8_t> old_;
    uint64_t replaced_ = 0;   // bytes of the old tag that the rendered ones take the place of
    bool prepared_ = false;

    void applyFrameNames(id3parser::id3tag& tag) const;
    // The entries that reading shows for `values`, pictures aside; the value
    // of one of them, null when there is none.
    static void valuesToEntries(const id3parser::TagValues& values, IDTags& tags);
    static clString shownValue(const id3parser::TagValues& values, const std::string& name);
    static bool HasFooter(clFile& file, uint64_t offset);
    int64_t provenTagSize(id3parser::id3tag& tag, uint64_t* keepFrom = nullptr);
    bool Refuse(const char16_t* reason);
    const char16_t* moveTail(uint64_t from, int64_t delta);
    const char16_t* putTag(const std::vector<uint8_t>& rendered, const std::vector<uint8_t>& old);
    bool paddingIsZero(uint64_t from, uint64_t to);
};
