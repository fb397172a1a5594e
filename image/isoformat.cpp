// AVIF and HEIC: ISO boxes down to meta/iprp/ipco, where the size ("ispe")
// and the codec configuration ("av1C", "hvcC") stand.

#include "image/imagereaders.h"
#include "image/imagestreams.h"
#include "transport/exceptions.h"

namespace imagedetect {
namespace {

enum class Codec { kNone, kAv1, kHevc };

struct IsoResult {
    ImageInfo& info;
    Codec codec = Codec::kNone;
};

void ReadProperty(BoundedReader& view, const BoxHeader& box, IsoResult& result) {
    if (IsType(box, "ispe")) {
        if (box.payload < 4) throw Qel::invalid_input();
        view.skipExact(4);
        result.info.width = ReadU32BE(view);
        result.info.height = ReadU32BE(view);
        result.info.depth = 24;
    } else if (IsType(box, "av1C")) {
        result.codec = Codec::kAv1;
    } else if (IsType(box, "hvcC")) {
        result.codec = Codec::kHevc;
    }
}

// Walks the children of the box whose budget the view holds. Only iprp (in
// meta) and ipco (in iprp) are entered.
void WalkChildren(BoundedReader& view, int depth, IsoResult& result) {
    while (view.Budget() > 0) {
        const BoxHeader box = ReadBoxHeader(view);
        const uint64_t parentRest = view.Enter(box.payload);
        if (depth == 0 && IsType(box, "iprp")) {
            WalkChildren(view, 1, result);
        } else if (depth == 1 && IsType(box, "ipco")) {
            WalkChildren(view, 2, result);
        } else if (depth == 2) {
            ReadProperty(view, box, result);
        }
        view.Leave(parentRest);
    }
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
    IsoResult result{info};
    WalkChildren(view, 0, result);
    if (result.codec == Codec::kNone || info.width == 0 || info.height == 0) throw Qel::invalid_input();
    return result.codec == Codec::kAv1;
}

}  // namespace imagedetect
