#include "tags/stdtags.h"

#include <cstring>

#include "support/clFile.h"
#include "support/clList.h"
#include "tags/changetexts.h"
#include "tags/filetail.h"
#include "tags/id3v2/tagid3v2.h"
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

// The flow's words, then the engine's reason when it gave one.
void LogFailure(const char16_t* words, const char16_t* reason, const clLogTarget* log, const char* label) {
    clLog::Error(words, log, label);
    if (reason) clLog::Error(reason, log, label);
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

namespace {

// The engines of one write, and which of them take part.
struct StdWrite {
    explicit StdWrite(const clFile& file) : id3v1(file), id3v2(file), ape(file) {}
    TagID3v1 id3v1;
    TagID3v2 id3v2;
    TagAPEv2 ape;
    bool withId3v1 = false, withId3v2 = false, withApe = false;
};

constexpr char kWriteLabel[] = "WriteStdTags";
constexpr char16_t kId3v1Words[] = u"Could not write ID3 tag";
constexpr char16_t kId3v2Words[] = u"Could not write ID3v2 tag";
constexpr char16_t kApeWords[] = u"Could not write APE tag";
constexpr char16_t kTagsOverlap[] = u"The ID3v2 tag at the start reaches into the tags at the end; the file was left as it was.";
constexpr char16_t kTailUnread[] = u"The tags at the file's end could not be read; the file was left as it was.";

// Every engine builds and checks its new tag before any of them writes: a
// refusal anywhere leaves the file as it was.
bool PrepareAll(StdWrite& w, const IDTags& tags, const clLogTarget* log) {
    if (w.withId3v1 && !w.id3v1.Prepare(tags, true)) {
        clLog::Error(kId3v1Words, log, kWriteLabel);
        return false;
    }
    if (w.withId3v2 && !w.id3v2.Prepare(tags, false)) {
        LogFailure(kId3v2Words, w.id3v2.Failure, log, kWriteLabel);
        return false;
    }
    if (w.withApe && !w.ape.Prepare(tags, true)) {
        LogFailure(kApeWords, w.ape.Failure, log, kWriteLabel);
        return false;
    }
    return true;
}

// The tags at the end go first, from the APE tag's old start: the ID3v1 tag
// is found from the file's end, so the APE rewrite in front of it doesn't
// move it for this purpose. The ID3v2 tag goes last, since its change moves
// everything behind it. When a write fails, the tail's old bytes go back, so
// that the file is as it was unless restoring it failed too.
bool CommitAll(StdWrite& w, clFile& file, const clLogTarget* log) {
    const bool apeChanges = w.withApe && w.ape.Changes();
    const bool id3v1Changes = w.withId3v1 && w.id3v1.Changes();
    TailSnapshot tail;
    if (apeChanges || id3v1Changes) {
        bool failed = false;
        const int64_t size = file.Size(&failed);
        const int64_t from = apeChanges ? w.ape.TagStart : size - static_cast<int64_t>(kId3v1Bytes);
        if (w.withId3v2 && from < static_cast<int64_t>(w.id3v2.tagSizeOnDisk())) {
            LogFailure(kId3v2Words, kTagsOverlap, log, kWriteLabel);
            return false;
        }
        if (failed || !tail.Take(file, from)) {
            LogFailure(apeChanges ? kApeWords : kId3v1Words, kTailUnread, log, kWriteLabel);
            return false;
        }
    }
    const char16_t* words = nullptr;
    const char16_t* reason = nullptr;
    if (apeChanges && !w.ape.Commit()) {
        words = kApeWords;
        reason = w.ape.Failure;
    } else if (id3v1Changes && !w.id3v1.Commit()) {
        words = kId3v1Words;
    } else if (w.withId3v2 && !w.id3v2.Commit()) {
        words = kId3v2Words;
        reason = w.id3v2.Failure;
        // The audio behind the tag didn't go back: the tail's old place is unknown.
        if (reason == kChangeDamaged) {
            LogFailure(words, reason, log, kWriteLabel);
            return false;
        }
    }
    if (!words) return true;
    const bool restored = !(apeChanges || id3v1Changes) || tail.Restore(file);
    if (!restored) reason = kChangeDamaged;
    else if (!reason || reason == kChangeDamaged) reason = kChangeRestored;
    LogFailure(words, reason, log, kWriteLabel);
    return false;
}

}  // namespace

bool WriteStdTags(const clString& path, const IDTags& tags, int family, const clLogTarget* log) {
    clFile file(path);
    if (!file.Open(clFile::kReadWrite)) {
        clLog::Error(WithText(u"Couldn't open file for updating: %s", clFile::OpenErrorText(path)), log, kWriteLabel);
        return false;
    }
    // Nothing to change: no tag is rewritten.
    if (tags.Count() == 0) return true;
    StdWrite w(file);
    // An ID3v1 tag is only ever updated, never created.
    FileTail tail;
    w.withId3v1 = ReadFileTail(file, tail) && tail.HasId3v1();
    const bool hasId3v2 = w.id3v2.tagSizeOnDisk() != 0;
    w.withApe = w.ape.Exists() || (!hasId3v2 && family == kFamilyApe);
    w.withId3v2 = hasId3v2 || (!w.withApe && family == kFamilyId3v2);
    return PrepareAll(w, tags, log) && CommitAll(w, file, log);
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
