// TagID3v2: options, writing and deleting.

#include "tags/id3v2/tagid3v2.h"

void TagID3v2::SetOption(const clString& name) {
    const auto Rename = [this](const char16_t* id, const char16_t* tagName) {
        IDTag* entry = frameNames.Find(clString(id), false);
        if (!entry) entry = frameNames.Add(clString(id), clString());
        entry->Value = clString(tagName);
    };
    if (name == u"ID3v2EncodeUni") encodingChoice = 1;
    else if (name == u"ID3v2EncodeUTF8") encodingChoice = 2;
    else if (name == u"ID3v2WriteV22") versionChoice = 0;
    else if (name == u"ID3v2WriteV221") versionChoice = 1;
    else if (name == u"ID3v2WriteV24") versionChoice = 3;
    else if (name == u"WriteFullDateInYearTag") fullDateInYear = 1;
    else if (name == u"WriteStrictYearDate") strictYearDate = 1;
    else if (name == u"TPE2Orchestra") Rename(u"TPE2", u"Orchestra");
    else if (name == u"TIT1Style") Rename(u"TIT1", u"Style");
}

bool TagID3v2::Write(const IDTags&, bool) { return false; }
void TagID3v2::Delete() {}
void TagID3v2::DeleteTag(const clString&) {}
