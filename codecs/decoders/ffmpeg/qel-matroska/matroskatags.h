#pragma once
// The three entry points of the Matroska tag engine. Each catches every
// failure, logs it under its own name and returns false; an abort request
// returns false silently.

#include "support/clLog.h"
#include "support/clString.h"
#include "tags/idtags.h"

namespace MatroskaTags {

// Text tags from the Tags elements, pictures from the Attachments. With
// `failure`, the reason for a false goes there instead of the log.
bool Read(const clString& path, IDTags& tags, const clLogTarget* log, clString* failure = nullptr);
// Merges `tags` into the file's Tags (and its pictures, when `tags` holds a
// picture numbered 1) in place.
bool Write(const clString& path, const IDTags& tags, const clLogTarget* log);
// `names`: a multi-string of tag names, or null / empty for all tags.
bool Delete(const clString& path, const char16_t* names, const clLogTarget* log);

}  // namespace MatroskaTags
