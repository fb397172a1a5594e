// Image type detection over arbitrary bytes: an answer with its names, or
// Qel::invalid_input, and nothing else.

#include <cstddef>
#include <cstdint>

#include "fuzz/scratchfile.h"
#include "image/imageinfo.h"
#include "transport/exceptions.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    MemoryImageSource source(data, size);
    try {
        const ImageInfo info = DetectImageType(source);
        Require(info.name != nullptr && info.extension != nullptr && info.mime != nullptr);
    } catch (const Qel::invalid_input&) {
    }
    return 0;
}
