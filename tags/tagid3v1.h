#pragma once
// The 128-byte ID3v1 tag at the end of a file. Text is in the ANSI code page;
// ID3v1.1 keeps a track number in the last two bytes of the comment.

#include <cstdint>

#include "support/clList.h"
#include "tags/basetag.h"

class TagID3v1 : public BaseTag {
public:
    explicit TagID3v1(const clFile& owner) : BaseTag(owner) {}

    void SetOption(const clString& name) override;
    clString TagName() const override { return clString(u"ID3v1"); }
    bool Read(IDTags& tags, bool wantVersion) override;
    bool Exists() override;
    bool Write(const IDTags& tags, bool merge) override { return Prepare(tags, merge) && Commit(); }
    // Builds the new tag in memory; the file doesn't change.
    bool Prepare(const IDTags& tags, bool merge);
    // Puts what Prepare built at the file's end; false when the file couldn't be changed.
    bool Commit();
    // After Prepare: whether Commit will change the file.
    bool Changes() const { return change_ != Change::kNone; }
    // Builds what deleting the whole tag (`names` null) or the entries of
    // `names` leaves; Commit writes it.
    bool PrepareDelete(const clStringList* names);
    void Delete() override;
    void DeleteTag(const clString& name) override;

    bool WriteVersion10 = false;   // "ID3v1Write10": no track number, comment of 30 bytes

private:
    enum class Change { kNone, kOverwrite, kCut, kAppend };
    Change change_ = Change::kNone;
    uint8_t pending_[128] = {};
};
