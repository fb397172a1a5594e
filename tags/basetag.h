#pragma once
// The interface of the engines that find, read, write and delete one kind of
// tag in an open file. All engines of one flow work on the flow's handle
// through a borrowed clFile, so only the flow closes it. Engines report by
// their results only: they write no log and let no exception out.

#include "support/clFile.h"
#include "support/clString.h"
#include "tags/idtags.h"

class BaseTag {
public:
    explicit BaseTag(const clFile& owner) : file(clFile::Borrow(owner)) {
        file.path.Clear();          // an engine never names its file
        file.showMessages = false;
        file.ownsHandle = false;
        file.shareMode = 3;
    }
    BaseTag(const BaseTag&) = delete;
    BaseTag& operator=(const BaseTag&) = delete;
    virtual ~BaseTag() = default;

    // Turns on one named behaviour; unknown names are ignored, case matters.
    virtual void SetOption(const clString& name) = 0;
    virtual clString TagName() const = 0;
    // Clears `tags`, then fills them. No tag of this kind is no failure.
    virtual bool Read(IDTags& tags, bool wantVersion) = 0;
    virtual bool Exists() = 0;
    virtual bool Write(const IDTags& tags, bool merge) = 0;
    virtual void Delete() = 0;
    virtual void DeleteTag(const clString& name) = 0;

protected:
    clFile file;
};
