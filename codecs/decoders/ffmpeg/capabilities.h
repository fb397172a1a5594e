#pragma once
// What the plug-in offers the host: the extensions it decodes, the stream
// types it accepts and, by extension, which tag engine a file belongs to.
// Every text here is a constant that lives as long as the library.

#include <span>

#include "support/clString.h"

struct DecodesRow {
    const char16_t* extension;
    const char16_t* description;
};

struct TagFamilyRow {
    const char16_t* extension;
    int family;
};

enum TagFamily : int {
    kTagFamilyNone = 0,
    kTagFamilyStandard = 1,     // APE, ID3v2, ID3v1
    kTagFamilyMatroska = 4,
};

inline constexpr const char16_t* kDecoderDescription = u"FFmpeg Decoder";

// The table "Decodes": what the host should route to this plug-in.
std::span<const DecodesRow> DecodesTable();
// The table "StreamingDecodes": MIME types of streams.
std::span<const char16_t* const> StreamingDecodesTable();
// Extension to tag family, compared in this order.
std::span<const TagFamilyRow> TagFamilyTable();

// 0 none, 1 standard tags, 4 Matroska; by the path's extension, ASCII case
// ignored. A URL has none.
int TagFamilyOf(const clString& path);
// Anything with "://" is a URL, not a local path.
bool IsUrl(const clString& path);
