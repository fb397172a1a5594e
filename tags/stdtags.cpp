#include "tags/stdtags.h"

#include <cstring>

#include "support/clFile.h"
#include "support/clList.h"
#include "tags/filetail.h"
#include "tags/id3v2/tagid3v2.h"
#include "tags/stdtagschange.h"
#include "tags/tagapev2.h"
#include "tags/tagid3v1.h"

namespace {

constexpr char16_t kApeItemsDamaged[] =
    u"The APE tag has an item that can't be read; only the items in front of it are shown.";

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

}  // namespace

bool ReadStdTags(const clString& path, IDTags& tags, clString& version, const clLogTarget* log,
                 clString* failure) {
    static constexpr char kLabel[] = "ReadStdTags";
    tags.Clear();
    version.Clear();
    clFile file(path);
    if (!file.Open(clFile::kRead)) {
        const clString why = WithText(u"Couldn't read tags from file: %s", clFile::OpenErrorText(path));
        if (failure) *failure = why;
        else clLog::Error(why, log, kLabel);
        return false;
    }
    TagAPEv2 ape(file);
    TagID3v2 id3v2(file);
    TagID3v1 id3v1(file);
    BaseTag* engines[] = {&ape, &id3v2, &id3v1};
    for (BaseTag* engine : engines) {
        IDTags found;
        if (!engine->Read(found, true)) {
            if (failure) *failure = WithText(u"Reading the %s tag failed.", engine->TagName());
            else clLog::Error(u"Reading tags failed.", log, kLabel);
            return false;
        }
        // What stands in front of a damaged item is shown; that more was there is said.
        if (engine == &ape && ape.ItemsDamaged()) clLog::Error(kApeItemsDamaged, log, kLabel);
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
    // Nothing to change: no tag is rewritten.
    if (tags.Count() == 0) return true;
    StdTagsChange change(file, {u"Could not write ID3 tag", u"Could not write ID3v2 tag", u"Could not write APE tag",
                                kLabel});
    // An ID3v1 tag is only ever updated, never created.
    FileTail tail;
    change.withId3v1 = ReadFileTail(file, tail) && tail.HasId3v1();
    const bool hasId3v2 = change.id3v2.tagSizeOnDisk() != 0;
    change.withApe = change.ape.Exists() || (!hasId3v2 && family == kFamilyApe);
    change.withId3v2 = hasId3v2 || (!change.withApe && family == kFamilyId3v2);

    const StdTagsChange::Words& words = change.words;
    if (change.withId3v1 && !change.id3v1.Prepare(tags, true)) return change.Refused(words.id3v1, nullptr, log);
    if (change.withId3v2 && !change.id3v2.Prepare(tags, false))
        return change.Refused(words.id3v2, change.id3v2.Failure, log);
    if (change.withApe && !change.ape.Prepare(tags, true)) return change.Refused(words.ape, change.ape.Failure, log);
    return change.Commit(file, log);
}

bool DeleteStdTags(const clString& path, const char16_t* names, const clLogTarget* log) {
    static constexpr char kLabel[] = "DeleteStdTags";
    clFile file(path);
    if (!file.Open(clFile::kReadWrite)) {
        clLog::Error(WithText(u"Couldn't open file for updating: %s", clFile::OpenErrorText(path)), log, kLabel);
        return false;
    }
    const bool wholeTags = !names || names[0] == 0;
    clStringList list;
    if (!wholeTags) list.FromMultiString(names);   // "[Empty]" stands for an empty name
    const clStringList* named = wholeTags ? nullptr : &list;

    StdTagsChange change(file, {u"Could not delete ID3 tag", u"Could not delete ID3v2 tag",
                                u"Could not delete APE tag", kLabel});
    change.withId3v1 = change.id3v1.Exists();
    change.withId3v2 = change.id3v2.Exists();
    change.withApe = change.ape.Exists();
    change.deleteId3v2 = wholeTags;

    const StdTagsChange::Words& words = change.words;
    if (change.withId3v1 && !change.id3v1.PrepareDelete(named)) return change.Refused(words.id3v1, nullptr, log);
    // A whole ID3v2 tag goes only when it is proven to be one: the rendering of
    // a change that keeps everything finds out without touching the file.
    IDTags removals;
    for (int i = 0; i < list.Count(); ++i) removals.Add(list[i], clString());
    if (change.withId3v2 && !change.id3v2.Prepare(removals, true))
        return change.Refused(words.id3v2, change.id3v2.Failure, log);
    if (change.withApe && !change.ape.PrepareDelete(named)) return change.Refused(words.ape, change.ape.Failure, log);
    return change.Commit(file, log);
}
