#pragma once
// Reads an ID3v2 tag of version 2.2, 2.3 or 2.4 into raw frames. Nothing past
// the size in the tag header is ever read; what the rules reject is parseError.

#include "tags/id3v2/id3frames.h"
#include "tags/id3v2/id3streams.h"

namespace id3parser {

void parseTag(id3tag& tag, streamIn& stream, parseCallback& callback);

void parseFramesV22(id3tag& tag, streamIn& stream, parseCallback& callback);
void parseFramesV23(id3tag& tag, streamIn& stream, parseCallback& callback);
void parseFramesV24(id3tag& tag, streamIn& stream, parseCallback& callback);

// The four-letter ID of a three-letter one; 0 when it has none.
uint32_t mapShortFrameId(const char* id3);

}  // namespace id3parser
