// The Matroska reader over arbitrary file bytes: it answers, never crashes,
// and every picture it hands out is made of bytes the file holds.

#include <cstddef>
#include <cstdint>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "fuzz/scratchfile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScratchFile scratch(".mka");
    scratch.Fill(data, size);
    IDTags tags;
    MatroskaTags::Read(clString::FromUtf8(scratch.Path()), tags, nullptr);
    for (int i = 0; i < tags.Count(); ++i) Require(tags[i].Data.Size() <= size);
    return 0;
}
