// Get, Set and DeleteATag: the keyed questions and the tag jobs of a decoder.

#include <string_view>

#include "codecs/decoders/ffmpeg/capabilities.h"
#include "codecs/decoders/ffmpeg/decoder.h"
#include "support/clLog.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "tags/stdtags.h"

namespace {

constexpr const char* kGetLabel = "clDecoder_ffmpeg::Get";
constexpr const char* kSetLabel = "clDecoder_ffmpeg::Set";
constexpr const char* kDeleteLabel = "clDecoder_ffmpeg::DeleteATag";

// Keys match exactly, with case, over their whole length.
bool KeyIs(const char16_t* key, std::u16string_view name) { return std::u16string_view(key) == name; }

bool GetDecodes(DecoderParam& param) {
    const auto table = DecodesTable();
    if (param.index >= table.size()) return false;
    param.text = table[param.index].extension;
    param.text2 = table[param.index].description;
    return true;
}

bool GetStreamingDecodes(DecoderParam& param) {
    const auto table = StreamingDecodesTable();
    if (param.index >= table.size()) return false;
    param.text = table[param.index];
    return true;
}

bool GetCanWriteIDTags(DecoderParam& param) {
    if (param.text == nullptr) return false;
    const int family = TagFamilyOf(clString(param.text));
    param.value = family >= 1 && family <= 4 ? 1 : 0;
    return true;
}

}  // namespace

bool clDecoder_ffmpeg::Get(const char16_t* key, DecoderParam* param) {
    if (key == nullptr) return false;
    clLog::Trace(key, Log(), kGetLabel);
    if (param == nullptr) return false;
    if (KeyIs(key, u"Decodes")) return GetDecodes(*param);
    if (KeyIs(key, u"StreamingDecodes")) return GetStreamingDecodes(*param);
    if (KeyIs(key, u"Decoder Description")) {
        param->text = kDecoderDescription;
        return true;
    }
    if (KeyIs(key, u"CanWriteIDTags")) return GetCanWriteIDTags(*param);
    return false;
}

bool clDecoder_ffmpeg::Set(const char16_t* key, DecoderParam* param) {
    if (key == nullptr) return false;
    clLog::Trace(key, Log(), kSetLabel);
    if (param == nullptr) return false;
    if (KeyIs(key, u"EventQuit")) return SetQuitEvent(param->text);
    if (!KeyIs(key, u"IDTags")) return false;
    // The blob's size comes from the host as a signed number; a negative one
    // cannot describe a blob, and read as unsigned it would run off its end.
    if (param->value < 0) {
        clLog::Error(u"Invalid tag data size.", Log(), kSetLabel);
        return false;
    }
    return WriteIDTags(this, param->text, param->data, static_cast<uint32_t>(param->value));
}

bool clDecoder_ffmpeg::DeleteATag(const char16_t* path, const char16_t* names) {
    const clString file(path);
    const int family = path == nullptr ? kTagFamilyNone : TagFamilyOf(file);
    if (family >= 1 && family <= 3) return DeleteStdTags(file, names, Log());
    if (family == kTagFamilyMatroska) return MatroskaTags::Delete(file, names, Log());
    clLog::Error(u"Tagging not supported for this format.", Log(), kDeleteLabel);
    return false;
}
