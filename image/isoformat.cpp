// AVIF and HEIC: ISO boxes down to meta. The primary item ("pitm") has its
// properties listed in "ipma" as indices into "ipco", where its size
// ("ispe"), bit depths ("pixi") and the codec configuration ("av1C",
// "hvcC") stand. A thumbnail is an item of its own with its own "ispe".

#include <array>
#include <string_view>

#include "image/imagereaders.h"
#include "image/imagestreams.h"
#include "transport/exceptions.h"

namespace imagedetect {
namespace {

enum class Codec { kNone, kAv1, kHevc };

constexpr size_t kMaxProperties = 64;
constexpr size_t kMaxAssociations = 32;

struct Property {
    uint32_t width = 0, height = 0;   // "ispe"
    uint32_t bits = 0;                // "pixi": the sum over the channels
    uint32_t channelBits = 0;         // and the first channel's
    bool size = false;
};

struct IsoResult {
    explicit IsoResult(ImageInfo& target) : info(target) {}
    ImageInfo& info;
    Codec codec = Codec::kNone;
    bool alpha = false;                  // an auxiliary alpha image is described
    std::array<Property, kMaxProperties> properties{};
    size_t propertyCount = 0;
    uint32_t primary = 0;
    bool hasPrimary = false;
    std::array<uint16_t, kMaxAssociations> associations{};   // 1-based indices into ipco
    size_t associationCount = 0;
    Property last;                       // the last "ispe" met: the answer without "ipma"
};

// An auxiliary image of type alpha, by the URN of its "auxC".
bool IsAlphaUrn(BoundedReader& view) {
    static constexpr char kAvif[] = "urn:mpeg:mpegB:cicp:systems:auxiliary:alpha";
    static constexpr char kHevc[] = "urn:mpeg:hevc:2015:auxid:1";
    std::array<char, sizeof kAvif> urn{};
    const size_t got = view.read(urn.data(), urn.size() - 1);
    const std::string_view text(urn.data(), got);
    return text.substr(0, text.find('\0')) == kAvif || text.substr(0, text.find('\0')) == kHevc;
}

void ReadProperty(BoundedReader& view, const BoxHeader& box, IsoResult& result) {
    Property property;
    if (IsType(box, "ispe")) {
        if (box.payload < 4) throw Qel::invalid_input();
        view.skipExact(4);
        property.width = ReadU32BE(view);
        property.height = ReadU32BE(view);
        property.size = true;
        result.last = property;
    } else if (IsType(box, "pixi")) {
        view.skipExact(4);
        const uint8_t channels = ReadU8(view);
        for (uint8_t i = 0; i < channels; ++i) {
            const uint8_t bits = ReadU8(view);
            property.bits += bits;
            if (i == 0) property.channelBits = bits;
        }
    } else if (IsType(box, "auxC")) {
        view.skipExact(4);
        if (IsAlphaUrn(view)) result.alpha = true;
    } else if (IsType(box, "av1C")) {
        result.codec = Codec::kAv1;
    } else if (IsType(box, "hvcC")) {
        result.codec = Codec::kHevc;
    }
    if (result.propertyCount < kMaxProperties) result.properties[result.propertyCount] = property;
    ++result.propertyCount;
}

void ReadPrimaryItem(BoundedReader& view, IsoResult& result) {
    const uint8_t version = ReadU8(view);
    view.skipExact(3);
    result.primary = version == 0 ? ReadU16BE(view) : ReadU32BE(view);
    result.hasPrimary = true;
}

// Keeps the property indices of the primary item.
void ReadAssociations(BoundedReader& view, IsoResult& result) {
    const uint8_t version = ReadU8(view);
    view.skipExact(2);
    const bool wide = (ReadU8(view) & 1) != 0;
    const uint32_t entries = ReadU32BE(view);
    for (uint32_t e = 0; e < entries; ++e) {
        const uint32_t item = version < 1 ? ReadU16BE(view) : ReadU32BE(view);
        const uint8_t count = ReadU8(view);
        for (uint8_t a = 0; a < count; ++a) {
            const uint16_t index = wide ? ReadU16BE(view) & 0x7FFF : ReadU8(view) & 0x7F;
            if (!result.hasPrimary || item != result.primary || result.associationCount >= kMaxAssociations) continue;
            result.associations[result.associationCount++] = index;
        }
    }
}

// Walks the children of the box whose budget the view holds: pitm in meta,
// iprp in meta, ipco and ipma in iprp, the properties in ipco.
void WalkChildren(BoundedReader& view, int depth, IsoResult& result) {
    while (view.Budget() > 0) {
        const BoxHeader box = ReadBoxHeader(view);
        const uint64_t parentRest = view.Enter(box.payload);
        if (depth == 0 && IsType(box, "pitm")) {
            ReadPrimaryItem(view, result);
        } else if (depth == 0 && IsType(box, "iprp")) {
            WalkChildren(view, 1, result);
        } else if (depth == 1 && IsType(box, "ipco")) {
            WalkChildren(view, 2, result);
        } else if (depth == 1 && IsType(box, "ipma")) {
            ReadAssociations(view, result);
        } else if (depth == 2) {
            ReadProperty(view, box, result);
        }
        view.Leave(parentRest);
    }
}

// The primary item's size and depth; without associations, the last size.
void Answer(IsoResult& result) {
    Property chosen = result.last;
    uint32_t bits = 0, channelBits = 8;
    for (size_t a = 0; a < result.associationCount; ++a) {
        const size_t index = result.associations[a];
        if (index == 0 || index > result.propertyCount || index > kMaxProperties) continue;
        const Property& property = result.properties[index - 1];
        if (property.size) chosen = property;
        if (property.bits != 0) {
            bits = property.bits;
            channelBits = property.channelBits;
        }
    }
    ImageInfo& info = result.info;
    info.width = chosen.width;
    info.height = chosen.height;
    info.depth = bits != 0 ? bits : 24;
    // The alpha plane has the depth of one colour channel.
    if (result.alpha) info.depth += channelBits;
    info.alpha = result.alpha;
}

}  // namespace

bool ReadIsoImage(Qel::streamIn& stream, ImageInfo& info) {
    BoxHeader box;
    for (;;) {
        box = ReadBoxHeader(stream);
        if (IsType(box, "mdat")) throw Qel::invalid_input();   // image data before its description
        if (IsType(box, "meta")) break;
        if (box.payload == kToTheEnd) throw Qel::invalid_input();
        stream.skipExact(box.payload);
    }
    BoundedReader view(box.payload, stream);
    if (box.payload < 4) throw Qel::invalid_input();
    view.skipExact(4);
    info = ImageInfo{};
    IsoResult result(info);
    WalkChildren(view, 0, result);
    Answer(result);
    if (result.codec == Codec::kNone || info.width == 0 || info.height == 0) throw Qel::invalid_input();
    return result.codec == Codec::kAv1;
}

}  // namespace imagedetect
