#pragma once
// The standard tag flows: APE, ID3v2 and ID3v1 engines run over one open file.
// They take the decoder's log target only for their log lines.

#include "support/clLog.h"
#include "support/clString.h"
#include "tags/idtags.h"

// Reads APE, then ID3v2, then ID3v1; the first source of a name wins.
// `version` receives the kinds found, joined by " & ". With `failure`, the
// reason for a false goes there instead of the log.
bool ReadStdTags(const clString& path, IDTags& tags, clString& version, const clLogTarget* log,
                 clString* failure = nullptr);
// Updates every kind of tag the file has; creates one only when it has none.
bool WriteStdTags(const clString& path, const IDTags& tags, int family, const clLogTarget* log);
// `names`: a multi-string of tag names, or null / empty for every whole tag.
bool DeleteStdTags(const clString& path, const char16_t* names, const clLogTarget* log);
