// Set("IDTags"): the host's tag blob goes to the engines of the file's family.

#include "codecs/decoders/ffmpeg/decoder.h"

#include "codecs/decoders/ffmpeg/capabilities.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "tags/idtags.h"
#include "tags/stdtags.h"

namespace {

constexpr int kFirstStdFamily = 1;
constexpr int kLastStdFamily = 3;
constexpr int kMatroskaFamily = 4;

}  // namespace

bool clDecoder_ffmpeg::WriteIDTags(clDecoder_ffmpeg* decoder, const char16_t* path, const void* blob,
                                   uint32_t blobSize) {
    const clLogTarget* log = decoder ? decoder->Log() : nullptr;
    clString file(path ? path : u"");
    int family = TagFamilyOf(file);
    if (family >= kFirstStdFamily && family <= kLastStdFamily) {
        IDTags tags;
        tags.Parse(blob, blobSize);
        return WriteStdTags(file, tags, family, log);
    }
    if (family == kMatroskaFamily) {
        IDTags tags;
        tags.Parse(blob, blobSize);
        return MatroskaTags::Write(file, tags, log);
    }
    clLog::Error(u"Tagging not supported for this format.", log, "clDecoder_ffmpeg::WriteIDTags");
    return false;
}
