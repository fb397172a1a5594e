#pragma once
// The write side of the ID3v2 engine: reconciles the frames read from a file
// with the values wanted (the frames of every name whose values don't change
// are kept byte for byte), then renders the frame list to bytes.

#include <cstdint>
#include <list>
#include <string>

#include "tags/id3v2/id3frames.h"
#include "tags/id3v2/id3streams.h"
#include "tags/id3v2/tagvalues.h"

namespace id3parser {

struct WriteSettings {
    uint8_t encoding = 0;     // of new frames: 0, 1 or 3 (2 is mapped)
    uint8_t looseYear = 0;    // "Year" goes to TYER as it stands
    uint8_t skipRating = 0;   // "Rating" makes no POPM
};

using FrameList = std::list<id3frame>;

// Frame bodies in the writer's encodings. COMM and USLT get the language "eng".
void setFrameText(id3frame& frame, const std::string& text, uint8_t encoding);
void appendFrameText(id3frame& frame, const std::string& text);
void setFrameAnsi(id3frame& frame, const std::string& text);
// Re-encodes a 2.2 COMM or USLT in encoding 2 or 3 as UTF-16 for a 2.3 tag.
void upgradeFrameEncoding(id3frame& frame);

// The encoding a new frame takes for `texts`: ISO-8859-1 where it holds them
// (and reads the same as the ANSI page), else UTF-16 with BOM below 2.4 and
// UTF-8 in 2.4. A `chosen` encoding other than 0 is taken as it is.
uint8_t textEncodingFor(const std::vector<std::string>& texts, uint32_t version, uint8_t chosen);
// `text` in `encoding` with its terminator, behind `body`.
void appendEncodedText(std::vector<uint8_t>& body, const std::string& text, uint8_t encoding);

// `changedValues`: the old values of the names that the caller changed in
// `values` (every other name is as the tag gave it); without it, every name
// is compared with what the tag gives.
void valuesToFrames(id3tag& tag, TagValues values, const WriteSettings& settings,
                    const TagValues* changedValues = nullptr);
// Leaves in `old` the frames of the names whose values `work` doesn't change
// (and those that give no name), and takes those names out of `work`. With
// `onlyChanged`, `oldValues` holds only the names that may have changed.
void retainUnchangedFrames(const id3tag& tag, uint32_t readVersion, FrameList& old, const TagValues& oldValues,
                           TagValues& work, bool onlyChanged);
void writeLeftover(id3tag& tag, const std::string& name, const std::vector<std::string>& list, uint8_t encoding);
bool isValidDateShape(const std::string& text);

// Pictures last: front covers first among them.
void orderPictures(id3tag& tag);
void writeSynchsafe(streamOut& out, uint64_t value);
// `keptBehind`: bytes of the old tag that stay on disk right behind the
// rendered ones (padding that holds something else than zeros); the tag's
// size counts them, and no padding is added.
void renderTag(const id3tag& tag, streamOut& out, uint64_t oldSize, uint64_t maxPadding, uint64_t alignment,
               uint64_t keptBehind = 0);

}  // namespace id3parser
