// Laying out the non-Cluster elements of a Segment anew around its Clusters:
// survey, layout and writing, in that order. Nothing is written before the
// new bytes are all built; the tail goes first and the leading area last, in
// one write, so that until then the old SeekHead and its elements stand.

#include <algorithm>
#include <array>
#include <functional>

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

bool IsKnownAt(const ParserRoot& root, uint32_t id, uint64_t offset) {
    return root.ElemOffsets(id).count(offset) != 0;
}

// An element the table doesn't know of, met by walking: carried into the new
// layout, so that nothing a reader may see is overwritten. A stale CRC-32 or
// a second SeekHead goes; another element of the replaced ID would come back
// beside the new one, so such a file is left alone.
void CarryUnknown(Survey& survey, EBML::StreamSeekable& stream, uint32_t found, uint64_t bodySize, uint32_t id) {
    if (found == kVoid || found == kCrc32 || found == kSeekHead) return;
    if (found == id || found == kCluster || found == 0) throw FileNotTaggable();
    survey.list.push_back({{found, EBML::ReadBinary(stream, bodySize)}});
}

// Walks [from, to) element by element; `visit` gets each element's ID, body
// size and offset with the stream at its body, and may read the body.
void WalkElements(EBML::StreamSeekable& stream, uint64_t from, uint64_t to,
                  const std::function<void(uint32_t, uint64_t, uint64_t)>& visit) {
    EBML::BoundedSeek(stream, from);
    while (stream.Tell() < to) {
        const uint64_t at = stream.Tell();
        const uint32_t found = EBML::ReadElementId(stream);
        const uint64_t bodySize = EBML::ReadElementSize(stream);
        const uint64_t body = stream.Tell();
        if (bodySize >= EBML::kUnknownSize || body > to || bodySize > to - body) EBML::Fail();
        visit(found, bodySize, at);
        EBML::BoundedSeek(stream, body + bodySize);
    }
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
        const bool load = elementId != id && elementId != kVoid && elementId != kSeekHead && elementId != kCluster &&
                          elementId != kCrc32;
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
    // The leading area is rewritten whole: what no Seek entry names is
    // found by its size fields and carried along.
    WalkElements(stream, segment.SegmentDataBegin, survey.firstCluster, [&](uint32_t found, uint64_t body, uint64_t at) {
        if (!IsKnownAt(root, found, at)) CarryUnknown(survey, stream, found, body, id);
    });
    // Every byte from the first Cluster to the tail must belong to an element
    // that ends in front of the tail, or the tail's bytes aren't proven free.
    // A Cluster of unknown size ends where its children do.
    EBML::BoundedSeek(stream, survey.firstCluster);
    while (stream.Tell() < survey.scanTrailing) {
        const uint32_t found = EBML::ReadElementId(stream);
        const uint64_t bodySize = EBML::ReadElementSize(stream);
        if (bodySize >= EBML::kUnknownSize && found == kCluster) {
            EBML::ScopedRange range(stream, survey.scanTrailing - stream.Tell());
            if (!StepOverClusterChildren(stream)) EBML::Fail();
            continue;
        }
        if (found != kCluster && found != kVoid) survey.hiddenAmongClusters = true;
        if (bodySize > survey.scanTrailing - stream.Tell()) EBML::Fail();
        EBML::BoundedSkip(stream, bodySize);
    }
    // The tail must hold no Cluster: metadata between Clusters can't move.
    // It is rewritten whole too, so what the table doesn't know is carried.
    const uint64_t segEnd = root.SegmentEnd();
    WalkElements(stream, survey.scanTrailing, stream.m_range.end, [&](uint32_t found, uint64_t body, uint64_t at) {
        if (found == kCluster) EBML::Fail();
        // Behind the Segment: cut with the truncation.
        if (at < segEnd && !IsKnownAt(root, found, at)) CarryUnknown(survey, stream, found, body, id);
    });
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
