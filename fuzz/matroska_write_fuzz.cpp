// A changed title written into an arbitrary file (a scratch copy), then read
// back: whatever the bytes, the write ends; a write that fails leaves the
// file byte for byte as it was; and when the file could be read before and
// the write reports success, it reads back with the new title.

#include <cstddef>
#include <cstdint>
#include <string>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "fuzz/scratchfile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScratchFile scratch(".mka");
    scratch.Fill(data, size);
    const clString path = clString::FromUtf8(scratch.Path());
    // The title's length follows the input, so that it both fits and doesn't.
    const clString title = clString::FromUtf8(std::string(size % 300, 't') + "!");
    IDTags before;
    const bool readable = MatroskaTags::Read(path, before, nullptr);
    IDTags tags;
    tags.Add(clString(u"TITLE"), title);
    if (!MatroskaTags::Write(path, tags, nullptr)) {
        Require(scratch.Bytes() == std::string(reinterpret_cast<const char*>(data), size));
        return 0;
    }
    // A write that leaves the Attachments alone doesn't mend them.
    if (!readable) return 0;
    IDTags read;
    Require(MatroskaTags::Read(path, read, nullptr));
    const IDTag* found = read.Find(clString(u"TITLE"), false);
    Require(found != nullptr && found->Value == title);
    return 0;
}
