#include "tags/stdtags.h"

#include <cstring>

#include "support/clFile.h"
#include "support/clList.h"
#include "tags/filetail.h"
#include "tags/id3v2/tagid3v2.h"
#include "tags/tagapev2.h"
#include "tags/tagid3v1.h"

namespace {

// Family 1 creates an APE tag where the file has none; 3 would create an ID3v2 tag.
constexpr int kFamilyApe = 1;
constexpr int kFamilyId3v2 = 3;

clString WithText(const char16_t* message, const clString& text) {
    return clString::Format(message, text.Text());
}

// Merges one engine's entries behind those already there: the first source of a name wins.
void MergeFirstWins(IDTags& tags, const IDTags& source) {
    for (int i = 0; i < source.Count(); ++i) {
        if (!tags.Find(source[i].Name, false)) tags.AddCopy(source[i]);
    }
}

void AppendVersion(clString& version, const clString& taken) {
    if (!version.Empty() && !taken.Empty()) version.Append(u" & ");
    version.Append(taken);
}

// The flow's words, then the engine's reason when it gave one.
void LogFailure(const char16_t* words, const char16_t* reason, const clLogTarget* log, const char* label) {
    clLog::Error(words, log, label);
    if (reason) clLog::Error(reason, log, label);
}

}  // namespace

bool ReadStdTags(const clString& path, IDTags& tags, clString& version, const clLogTarget* log) {
    static constexpr char kLabel[] = "ReadStdTags";
    tags.Clear();
    version.Clear();
    clFile file(path);
    if (!file.Open(clFile::kRead)) {
        clLog::Error(WithText(u"Couldn't read tags from file: %s", clFile::OpenErrorText(path)), log, kLabel);
        return false;
    }
    TagAPEv2 ape(file);
    TagID3v2 id3v2(file);
    TagID3v1 id3v1(file);
    BaseTag* engines[] = {&ape, &id3v2, &id3v1};
    for (BaseTag* engine : engines) {
        IDTags found;
        if (!engine->Read(found, true)) {
            clLog::Error(u"Reading tags failed.", log, kLabel);
            return false;
        }
        AppendVersion(version, found.TakeVersion());
        MergeFirstWins(tags, found);
    }
    return true;
}

bool WriteStdTags(const clString& path, const IDTags& tags, int family, const clLogTarget* log) {
    static constexpr char kLabel[] = "WriteStdTags";
    clFile file(path);
    if (!file.Open(clFile::kReadWrite)) {
        clLog::Error(WithText(u"Couldn't open file for updating: %s", clFile::OpenErrorText(path)), log, kLabel);
        return false;
    }
    TagID3v1 id3v1(file);
    TagID3v2 id3v2(file);
    TagAPEv2 ape(file);

    // An ID3v1 tag is only ever updated, never created.
    FileTail tail;
    if (ReadFileTail(file, tail) && tail.HasId3v1() && !id3v1.Write(tags, true)) {
        clLog::Error(u"Could not write ID3 tag", log, kLabel);
        return false;
    }
    bool id3v2Handled = false;
    if (id3v2.tagSizeOnDisk() != 0) {
        if (!id3v2.Write(tags, false)) {
            LogFailure(u"Could not write ID3v2 tag", id3v2.Failure, log, kLabel);
            return false;
        }
        id3v2Handled = true;
    }
    bool writeApe = ape.Exists() || (!id3v2Handled && family == kFamilyApe);
    if (writeApe && !ape.Write(tags, true)) {
        LogFailure(u"Could not write APE tag", ape.Failure, log, kLabel);
        return false;
    }
    if (!writeApe && !id3v2Handled && family == kFamilyId3v2 && !id3v2.Write(tags, false)) {
        LogFailure(u"Could not write ID3v2 tag", id3v2.Failure, log, kLabel);
        return false;
    }
    return true;
}

bool DeleteStdTags(const clString& path, const char16_t* names, const clLogTarget* log) {
    static constexpr char kLabel[] = "DeleteStdTags";
    clFile file(path);
    if (!file.Open(clFile::kReadWrite)) {
        clLog::Error(WithText(u"Couldn't open file for updating: %s", clFile::OpenErrorText(path)), log, kLabel);
        return false;
    }
    bool wholeTags = !names || names[0] == 0;
    clStringList list;
    if (!wholeTags) list.FromMultiString(names);   // "[Empty]" stands for an empty name

    TagID3v1 id3v1(file);
    TagID3v2 id3v2(file);
    TagAPEv2 ape(file);
    BaseTag* engines[] = {&id3v1, &id3v2, &ape};
    for (BaseTag* engine : engines) {
        if (!engine->Exists()) continue;
        if (wholeTags) {
            engine->Delete();
            continue;
        }
        for (int i = 0; i < list.Count(); ++i) engine->DeleteTag(list[i]);
    }
    // A tag that couldn't be removed is no success.
    bool removed = true;
    if (id3v2.Failure) {
        LogFailure(u"Could not delete ID3v2 tag", id3v2.Failure, log, kLabel);
        removed = false;
    }
    if (ape.Failure) {
        LogFailure(u"Could not delete APE tag", ape.Failure, log, kLabel);
        removed = false;
    }
    return removed;
}
