#pragma once
// Reads an ID3v2 tag of version 2.2, 2.3 or 2.4 into raw frames. Nothing past
// the size in the tag header is ever read; a header that the rules reject is
// parseError. A damaged frame ends the frames: those in front of it are read,
// and `id3tag::damage` says why the rest wasn't.

#include "tags/id3v2/id3frames.h"
#include "tags/id3v2/id3streams.h"

namespace id3parser {

void parseTag(id3tag& tag, streamIn& stream, parseCallback& callback);

void parseFramesV22(id3tag& tag, streamIn& stream, parseCallback& callback);
void parseFramesV23(id3tag& tag, streamIn& stream, parseCallback& callback);
// `plainSizes`: frame sizes as plain numbers, as some writers put them;
// `allUnsynchronised`: the tag header says every frame is unsynchronised.
void parseFramesV24(id3tag& tag, streamIn& stream, parseCallback& callback, bool plainSizes = false,
                    bool allUnsynchronised = false);

// The four-letter ID of a three-letter one; 0 when it has none.
uint32_t mapShortFrameId(const char* id3);

}  // namespace id3parser
