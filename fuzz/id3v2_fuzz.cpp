// The ID3v2 parser and the frame-to-value step over arbitrary bytes, through
// the cache as the file path reads them, read tolerantly and strictly.
// Whatever the bytes, only parseError may leave the parser, and the values
// step never throws on the read path.

#include <cstddef>
#include <cstdint>

#include "tags/id3v2/id3parser.h"
#include "tags/id3v2/id3text.h"
#include "tags/id3v2/id3values.h"

using namespace id3parser;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    streamInMem memory(data, size);
    streamInCache cache(memory, 64);   // small, so that fills and bypasses both happen
    parseCallback callback;
    id3tag tag;
    try {
        parseTag(tag, cache, callback);
    } catch (const parseError&) {
        return 0;
    }
    for (uint8_t strict : {0, 1}) {
        tag.strict = strict;
        TagValues values;
        framesToValues(tag, values);
    }
    for (const id3frame& frame : tag.frames) {
        if (frame.id != frameId("APIC")) continue;
        try {
            uint8_t type = 0;
            const uint8_t* image = nullptr;
            uint64_t imageSize = 0;
            pictureFields(frame.data.data(), frame.data.size(), type, image, imageSize);
            if (image < frame.data.data() || image + imageSize != frame.data.data() + frame.data.size()) __builtin_trap();
        } catch (const parseError&) {
        }
    }
    return 0;
}
