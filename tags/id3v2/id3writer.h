#pragma once
// The write side of the ID3v2 engine: reconciles the frames read from a file
// with the values wanted (an old frame that still says what is wanted is
// kept byte for byte), then renders the frame list to bytes.

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

void valuesToFrames(id3tag& tag, const TagValues& values, const WriteSettings& settings);
// Leaves in `old` what is to be kept and takes out of `work` what it says.
void retainMatchingFrames(const id3tag& context, FrameList& old, TagValues& work);
bool valuesMatch(const TagValues& temp, TagValues& work);
void writeLeftover(id3tag& tag, const std::string& name, const std::vector<std::string>& list, uint8_t encoding);
bool isValidDateShape(const std::string& text);

// Pictures last: front covers first among them.
void orderPictures(id3tag& tag);
void writeSynchsafe(streamOut& out, uint64_t value);
void renderTag(const id3tag& tag, streamOut& out, uint64_t oldSize, uint64_t maxPadding, uint64_t alignment);

}  // namespace id3parser
