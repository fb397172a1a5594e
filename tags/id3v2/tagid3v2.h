#pragma once
// The ID3v2 tag at the start of a file.

#include <cstdint>

#include "tags/basetag.h"

// Stands in until the full ID3v2 engine replaces it: behaves as "no ID3v2 tag in this file".
class TagID3v2 : public BaseTag {
public:
    explicit TagID3v2(const clFile& owner) : BaseTag(owner) {}

    void SetOption(const clString&) override {}
    clString TagName() const override { return clString(u"ID3v2"); }
    bool Read(IDTags& tags, bool) override {
        tags.Clear();
        return true;
    }
    bool Exists() override { return tagSizeOnDisk() != 0; }
    bool Write(const IDTags&, bool) override { return false; }
    void Delete() override {}
    void DeleteTag(const clString&) override {}

    // The tag's whole size in bytes; 0 when there is none at the file's start.
    uint64_t tagSizeOnDisk() { return 0; }
};
