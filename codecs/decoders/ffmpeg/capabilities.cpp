#include "codecs/decoders/ffmpeg/capabilities.h"

#include <array>

namespace {

constexpr std::array<DecodesRow, 19> kDecodes = {{
    {u".tak", u"Tom's Audio Kompressor"},
    {u".shn", u"Shorten"},
    {u".ac3", u"AC-3"},
    {u".eac3", u"E-AC-3"},
    {u".mka", u"Matroska Audio"},
    {u".weba", u"Web Audio"},
    {u".vqf", u"TwinVQ"},
    {u".dts", u"DTS"},
    {u".dtshd", u"DTS-HD"},
    {u".tta", u"True Audio"},
    {u".mlp", u"MLP"},
    {u".ts", u"MPEG-TS"},
    {u".ra", u"Real Audio"},
    {u".rm", u"Real Audio"},
    {u".voc", u"Creative Voice"},
    {u".au", u"AU/SND"},
    {u".snd", u"AU/SND"},
    {u".amr", u"AMR"},
    {u".awb", u"AMR"},
}};

constexpr std::array<const char16_t*, 5> kStreamingDecodes = {
    u"application/vnd.apple.mpegurl",
    u"audio/mpegurl",
    u"audio/x-mpegurl",
    u"application/mpegurl",
    u"application/x-mpegurl",
};

// ".mkv" and ".webm" are taggable although the host is not offered them for
// decoding.
constexpr std::array<TagFamilyRow, 8> kTagFamilies = {{
    {u".tak", kTagFamilyStandard},
    {u".tta", kTagFamilyStandard},
    {u".dts", kTagFamilyStandard},
    {u".dtshd", kTagFamilyStandard},
    {u".mkv", kTagFamilyMatroska},
    {u".mka", kTagFamilyMatroska},
    {u".webm", kTagFamilyMatroska},
    {u".weba", kTagFamilyMatroska},
}};

}  // namespace

std::span<const DecodesRow> DecodesTable() { return kDecodes; }

std::span<const char16_t* const> StreamingDecodesTable() { return kStreamingDecodes; }

std::span<const TagFamilyRow> TagFamilyTable() { return kTagFamilies; }

bool IsUrl(const clString& path) { return path.Find(u"://") != 0; }

int TagFamilyOf(const clString& path) {
    // The engines work on local files only; a stream's tags are what the worker reads.
    if (IsUrl(path)) return kTagFamilyNone;
    const clString extension = path.FileExtension();
    for (const TagFamilyRow& row : kTagFamilies) {
        if (clString::EqualsNoCase(extension.Text(), row.extension)) return row.family;
    }
    return kTagFamilyNone;
}
