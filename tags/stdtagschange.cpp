#include "tags/stdtagschange.h"

#include "tags/changetexts.h"
#include "tags/filetail.h"

namespace {

constexpr char16_t kTagsOverlap[] =
    u"The ID3v2 tag at the start reaches into the tags at the end; the file was left as it was.";
constexpr char16_t kTailUnread[] = u"The tags at the file's end could not be read; the file was left as it was.";

}  // namespace

bool StdTagsChange::Refused(const char16_t* engineWords, const char16_t* reason, const clLogTarget* log) const {
    clLog::Error(engineWords, log, words.label);
    if (reason) clLog::Error(reason, log, words.label);
    return false;
}

// The ID3v1 tag is found from the file's end, so the APE rewrite in front of
// it, which carries the old ID3v1 bytes along, doesn't move it for this
// purpose. The tail's old bytes are kept: when a later write fails, they go
// back.
bool StdTagsChange::Commit(clFile& file, const clLogTarget* log) {
    const bool apeChanges = withApe && ape.Changes();
    const bool id3v1Changes = withId3v1 && id3v1.Changes();
    const bool tailChanges = apeChanges || id3v1Changes;
    TailSnapshot tail;
    if (tailChanges) {
        bool failed = false;
        const int64_t size = file.Size(&failed);
        const int64_t from = apeChanges ? ape.TagStart : size - static_cast<int64_t>(kId3v1Bytes);
        if (withId3v2 && from < static_cast<int64_t>(id3v2.tagSizeOnDisk())) return Refused(words.id3v2, kTagsOverlap, log);
        if (failed || !tail.Take(file, from)) return Refused(apeChanges ? words.ape : words.id3v1, kTailUnread, log);
    }
    const char16_t* failedWords = nullptr;
    const char16_t* reason = nullptr;
    if (apeChanges && !ape.Commit()) {
        failedWords = words.ape;
        reason = ape.Failure;
    } else if (id3v1Changes && !id3v1.Commit()) {
        failedWords = words.id3v1;
    } else if (withId3v2) {
        if (deleteId3v2) id3v2.Delete();
        if (deleteId3v2 ? id3v2.Failure != nullptr : !id3v2.Commit()) {
            failedWords = words.id3v2;
            reason = id3v2.Failure;
            // The audio behind the tag didn't go back: the tail's old place is unknown.
            if (reason == kChangeDamaged) return Refused(failedWords, reason, log);
        }
    }
    if (!failedWords) return true;
    if (tailChanges && !tail.Restore(file)) reason = kChangeDamaged;
    else if (!reason || reason == kChangeDamaged) reason = kChangeRestored;
    return Refused(failedWords, reason, log);
}
