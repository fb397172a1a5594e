// Laying out the non-Cluster elements of a Segment anew around its Clusters:
// survey, layout and writing, in that order. Nothing is written before the
// new bytes are all built; the tail goes first and the leading area last, in
// one write, so that until then the old SeekHead and its elements stand.

#include <algorithm>
#include <array>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskaids.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskawrite.h"

namespace Matroska {
namespace {

constexpr uint64_t kMinimalSeekHeadRoom = 28;
constexpr uint64_t kSeekEntryRoom = 20;
constexpr uint64_t kSeekHeadHeaderRoom = 10;
constexpr uint64_t kHeaderRoom = 8;

struct Planned {
    EBML::chainEntry_t entry;
    bool placed = false;
};

struct Survey {
    uint64_t firstCluster = 0;
    uint64_t availLeading = 0;
    uint64_t scanTrailing = 0;
    // An element other than Cluster and Void among the Clusters that no
    // Seek entry names: hidden from a reader that trusts the SeekHead.
    bool hiddenAmongClusters = false;
    std::vector<Planned> list;
};

struct Layout {
    ElementTableType fresh;
    EBML::StreamWritableSimple outPrefix;
    EBML::StreamWritableSimple outPrefix2;
    EBML::StreamWritableSimple writer;
};

void Place(Planned& planned, EBML::StreamWritableSimple& buffer, uint64_t base, ElementTableType& fresh) {
    const EBML::chainEntry_t& entry = planned.entry;
    fresh[entry.id].insert(base + buffer.Size());
    EBML::WriteElement(buffer, entry.id, entry.data.data(), entry.data.size());
    planned.placed = true;
}

void Append(EBML::StreamWritableSimple& to, const EBML::StreamWritableSimple& from) { to.Write(from.Data(), from.Size()); }

void WriteSeekHead(EBML::StreamWritableSimple& buffer, const ElementTableType& table, uint64_t dataBegin) {
    const std::vector<uint8_t> body = EncodeSeekHeadBody(table, dataBegin);
    EBML::WriteElement(buffer, kSeekHead, body.data(), body.size());
}

// Phase 1: where the Clusters begin and end, and every other element in memory.
Survey TakeSurvey(ParserRoot& root, EBML::StreamRW& stream, const uint8_t* data, uint64_t size, uint32_t id) {
    const ParserSegmentV2& segment = root.segment;
    Survey survey;
    EBML::BoundedSeek(stream, segment.SegmentDataBegin);
    ClusterFinder finder;
    {
        EBML::ScopedRange range(stream, segment.SegmentDataSize);
        finder.Run(stream);
    }
    survey.firstCluster = finder.offset;
    survey.availLeading = finder.offset - segment.SegmentDataBegin;
    EBML::Check(survey.availLeading < stream.GetSize(), "availLeading < str.GetSize()");
    survey.scanTrailing = root.SegmentEnd();
    survey.list.push_back({{id, std::vector<uint8_t>(data, data + size)}});
    for (const auto& [elementId, offsets] : segment.ElementTable) {
        // The reserved ID 0 would get a Seek entry that no reader accepts.
        if (elementId == 0) EBML::Fail();
        const bool load = elementId != id && elementId != kVoid && elementId != kSeekHead && elementId != kCluster;
        for (uint64_t q : offsets) {
            if (load) {
                EBML::BoundedSeek(stream, q);
                if (EBML::ReadElementId(stream) != elementId) EBML::Fail();
                const uint64_t bodySize = EBML::ReadElementSize(stream);
                survey.list.push_back({{elementId, EBML::ReadBinary(stream, bodySize)}});
            }
            if (elementId != kCluster && q > survey.firstCluster) survey.scanTrailing = std::min(survey.scanTrailing, q);
        }
    }
    // Every byte from the first Cluster to the tail must belong to an element
    // that ends in front of the tail, or the tail's bytes aren't proven free.
    EBML::BoundedSeek(stream, survey.firstCluster);
    while (stream.Tell() < survey.scanTrailing) {
        const uint32_t found = EBML::ReadElementId(stream);
        if (found != kCluster && found != kVoid) survey.hiddenAmongClusters = true;
        const uint64_t bodySize = EBML::ReadElementSize(stream);
        if (bodySize > survey.scanTrailing - stream.Tell()) EBML::Fail();
        EBML::BoundedSkip(stream, bodySize);
    }
    // The tail must hold no Cluster: metadata between Clusters can't move.
    EBML::BoundedSeek(stream, survey.scanTrailing);
    while (stream.Tell() < stream.m_range.end) {
        if (EBML::ReadElementId(stream) == kCluster) EBML::Fail();
        EBML::BoundedSkip(stream, EBML::ReadElementSize(stream));
    }
    return survey;
}

void PlaceAllInto(Survey& survey, Layout& layout, bool tags, EBML::StreamWritableSimple& buffer, uint64_t base) {
    for (Planned& planned : survey.list) {
        if (!planned.placed && (planned.entry.id == kTags) == tags) Place(planned, buffer, base, layout.fresh);
    }
}

// No room for even a minimal SeekHead: everything goes behind the Clusters.
void LayoutWithoutSeekHead(Survey& survey, Layout& layout) {
    PlaceAllInto(survey, layout, false, layout.writer, survey.scanTrailing);
    PlaceAllInto(survey, layout, true, layout.writer, survey.scanTrailing);
}

// Room for a small SeekHead only: it points at the main one behind the Clusters.
void LayoutWithSmallSeekHead(Survey& survey, Layout& layout, uint64_t dataBegin, uint64_t estimate) {
    PlaceAllInto(survey, layout, false, layout.writer, survey.scanTrailing);
    const uint64_t mainSeekHead = survey.scanTrailing + layout.writer.Size();
    const uint64_t suffixTagsBase = mainSeekHead + estimate;
    PlaceAllInto(survey, layout, true, layout.outPrefix2, suffixTagsBase);
    WriteSeekHead(layout.writer, layout.fresh, dataBegin);
    if (layout.outPrefix2.Size() != 0) {
        const uint64_t written = survey.scanTrailing + layout.writer.Size();
        if (written > suffixTagsBase) EBML::Fail();
        EBML::WriteVoid(layout.writer, suffixTagsBase - written);
        EBML::Check(layout.writer.Size() + survey.scanTrailing == suffixTagsBase,
                    "writer.Size() + scanTrailing == suffixTagsBase");
        Append(layout.writer, layout.outPrefix2);
    }
    WriteSeekHead(layout.outPrefix, ElementTableType{{kSeekHead, {mainSeekHead}}}, dataBegin);
    layout.fresh[kSeekHead].insert(mainSeekHead);
    layout.fresh[kSeekHead].insert(dataBegin);
    const uint64_t prefix = layout.outPrefix.Size();
    if (prefix > survey.availLeading || survey.availLeading - prefix == 1) EBML::Fail();
}

// The normal case: SeekHead, Info, Tracks, Cues and what else fits in front.
void LayoutInFront(Survey& survey, Layout& layout, uint64_t dataBegin, uint64_t estimate) {
    const uint64_t avail = survey.availLeading - estimate;
    const uint64_t base = dataBegin + estimate;
    auto fits = [&](const Planned& planned) {
        return !planned.placed && planned.entry.id != kTags &&
               planned.entry.data.size() + kHeaderRoom + layout.outPrefix2.Size() < avail;
    };
    auto placeInFront = [&](Planned& planned) {
        Place(planned, layout.outPrefix2, base, layout.fresh);
        EBML::Check(layout.outPrefix2.Size() <= avail, "outPrefix2.Size() <= avail");
    };
    for (uint32_t first : {kInfo, kTracks, kCues}) {
        for (Planned& planned : survey.list) {
            if (planned.entry.id == first && fits(planned)) placeInFront(planned);
        }
    }
    for (Planned& planned : survey.list) {
        if (fits(planned)) placeInFront(planned);
    }
    PlaceAllInto(survey, layout, false, layout.writer, survey.scanTrailing);
    PlaceAllInto(survey, layout, true, layout.writer, survey.scanTrailing);
    WriteSeekHead(layout.outPrefix, layout.fresh, dataBegin);
    layout.fresh[kSeekHead].insert(dataBegin);
    EBML::Check(layout.outPrefix.Size() < estimate, "outPrefix.Size() < seekHeadEstimate");
    EBML::WriteVoid(layout.outPrefix, estimate - layout.outPrefix.Size());
    EBML::Check(layout.outPrefix.Size() == estimate, "outPrefix.Size() == seekHeadEstimate");
    Append(layout.outPrefix, layout.outPrefix2);
}

}  // namespace

void RelayoutSegment(ParserRoot& root, EBML::StreamRW& stream, const uint8_t* data, uint64_t size, uint32_t id) {
    ParserSegmentV2& segment = root.segment;
    const uint64_t dataBegin = segment.SegmentDataBegin;
    Survey survey = TakeSurvey(root, stream, data, size, id);

    // Phase 2: the new bytes of the tail and of the leading area.
    const uint64_t estimate = kSeekEntryRoom * survey.list.size() + kSeekHeadHeaderRoom;
    Layout layout;
    if (survey.availLeading < kMinimalSeekHeadRoom) {
        // Without a SeekHead a reader walks the whole Segment, so what hid
        // among the Clusters would come to light: tags the user never saw,
        // or bytes that don't parse.
        if (survey.hiddenAmongClusters) EBML::Fail();
        LayoutWithoutSeekHead(survey, layout);
    } else if (survey.availLeading < estimate) {
        LayoutWithSmallSeekHead(survey, layout, dataBegin, estimate);
    } else {
        LayoutInFront(survey, layout, dataBegin, estimate);
    }
    // The rest of the leading area becomes one Void. Built here, before any
    // write, so that a gap of one byte fails with the file untouched.
    if (layout.outPrefix.Size() > survey.availLeading) EBML::Fail();
    EBML::WriteVoid(layout.outPrefix, survey.availLeading - layout.outPrefix.Size());
    EBML::Check(layout.outPrefix.Size() == survey.availLeading, "writer.Size() == availLeading");

    // Phase 3: the tail first, the leading area last.
    const EBML::StreamWritableSimple& writer = layout.writer;
    if (writer.Size() != 0 || stream.GetSize() > survey.scanTrailing) {
        if (!RewriteSegmentSize(stream, root.SegmentOffset, survey.scanTrailing + writer.Size() - dataBegin)) {
            EBML::Fail();
        }
        stream.Seek(survey.scanTrailing);
        stream.Write(writer.Data(), writer.Size());
        TruncateAt(root, stream, stream.Tell());
    }
    stream.Seek(dataBegin);
    stream.Write(layout.outPrefix.Data(), layout.outPrefix.Size());
    segment.ElementTable = std::move(layout.fresh);
}

}  // namespace Matroska
