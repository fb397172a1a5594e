#pragma once
// The 128-byte ID3v1 tag at the end of a file. Text is in the ANSI code page;
// ID3v1.1 keeps a track number in the last two bytes of the comment.

#include <cstdint>

#include "tags/basetag.h"

class TagID3v1 : public BaseTag {
public:
    explicit TagID3v1(const clFile& owner) : BaseTag(owner) {}

    void SetOption(const clString& name) override;
    clString TagName() const override { return clString(u"ID3v1"); }
    bool Read(IDTags& tags, bool wantVersion) override;
    bool Exists() override;
    bool Write(const IDTags& tags, bool merge) override;
    void Delete() override;
    void DeleteTag(const clString& name) override;

    bool WriteVersion10 = false;   // "ID3v1Write10": no track number, comment of 30 bytes

private:
    // Puts the built tag into the file; false when the file couldn't be changed.
    bool Put(const uint8_t* tag, bool content, bool present, bool hadEntries);
};
