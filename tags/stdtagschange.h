#pragma once
// One change of a file's standard tags, made by all engines together: each
// engine builds and checks its new tag first, and only when all of them
// could does any of them write. A write that fails then puts back what the
// others wrote, so that a failed change leaves the file as it was.

#include "support/clFile.h"
#include "support/clLog.h"
#include "tags/id3v2/tagid3v2.h"
#include "tags/tagapev2.h"
#include "tags/tagid3v1.h"

struct StdTagsChange {
    // What the log says when an engine fails, and under which label.
    struct Words {
        const char16_t* id3v1;
        const char16_t* id3v2;
        const char16_t* ape;
        const char* label;
    };

    StdTagsChange(const clFile& file, const Words& words) : id3v1(file), id3v2(file), ape(file), words(words) {}

    // Logs an engine's refusal of its part; false, so that a flow can return it.
    bool Refused(const char16_t* engineWords, const char16_t* reason, const clLogTarget* log) const;
    // Writes what the prepared engines built: the tags at the end first, the
    // ID3v2 tag last, since its change moves everything behind it.
    bool Commit(clFile& file, const clLogTarget* log);

    TagID3v1 id3v1;
    TagID3v2 id3v2;
    TagAPEv2 ape;
    Words words;
    bool withId3v1 = false, withId3v2 = false, withApe = false;
    bool deleteId3v2 = false;   // the ID3v2 part is the delete of the whole tag
};
