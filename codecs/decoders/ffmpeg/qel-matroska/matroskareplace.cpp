// Replacing an element in place, removing elements, and keeping the
// Segment's size and the SeekHead's entries true to the file.

#include <algorithm>
#include <array>
#include <utility>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskaids.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskawrite.h"

namespace Matroska {
namespace {

// Finds the Seek entries of a SeekHead that point at offsets being removed.
class ParserSeekTablePurgeEntries : public EBML::Parser {
public:
    ParserSeekTablePurgeEntries(uint32_t purgeId, const std::set<uint64_t>* purgeOffsets, uint64_t dataBegin)
        : id(purgeId), offsets(purgeOffsets), SegmentDataBegin(dataBegin) {}
    void OnBegin(EBML::Stream& stream) override {
        seekHeadEnd = stream.m_range.end;
        crc = {0, 0};
        purged = false;
    }
    void OnElement(uint32_t elementId, uint64_t size, EBML::Stream& stream) override {
        if (elementId == kCrc32 && crc.second == 0) crc = {elementStart, stream.Tell() + size - elementStart};
        if (elementId != kSeek) return;
        ParserSeekEntry entry;
        entry.Run(stream);
        if (entry.id == id && offsets->count(SegmentDataBegin + entry.position) != 0 && elementStart < seekHeadEnd) {
            entries.emplace_back(elementStart, seekHeadEnd);
            purged = true;
        }
    }
    // A SeekHead whose entries change loses its CRC-32: it would no longer hold.
    void OnEnd() override {
        if (purged && crc.second >= 2) staleChecks.push_back(crc);
    }

    std::vector<std::pair<uint64_t, uint64_t>> entries;
    std::vector<std::pair<uint64_t, uint64_t>> staleChecks;   // (offset, total) of CRC-32 children
    std::pair<uint64_t, uint64_t> crc{0, 0};
    bool purged = false;
    uint32_t id;
    const std::set<uint64_t>* offsets;
    uint64_t SegmentDataBegin;
    uint64_t seekHeadEnd = 0;
};

// True when another known element starts inside [begin, end): the span's
// size fields lie, and its bytes aren't proven to be this element's.
bool OverlapsOthers(const ParserRoot& root, uint32_t id, uint64_t begin, uint64_t end) {
    for (const auto& [otherId, offsets] : root.segment.ElementTable) {
        const auto inside = offsets.lower_bound(begin + 1);
        if (otherId != id && inside != offsets.end() && *inside < end) return true;
    }
    return false;
}

std::vector<uint8_t> Header(uint32_t id, uint64_t size) {
    EBML::StreamWritableSimple header;
    EBML::WriteVarInt(header, id);
    EBML::WriteVarInt(header, size);
    return header.Take();
}

}  // namespace

bool RewriteSegmentSize(EBML::StreamRW& stream, uint64_t segmentOffset, uint64_t newSize) {
    EBML::BoundedSeek(stream, segmentOffset);
    if (EBML::ReadElementId(stream) != kSegment) EBML::Fail();
    const uint64_t field = stream.Tell();
    uint8_t first = 0;
    EBML::BoundedRead(stream, &first, 1);
    const int width = EBML::VarIntWidth(first);
    // A Segment of unknown size runs to the end of the file, and every write
    // here ends the file where the Segment's content ends: it stays unknown.
    if (first == 0xFF || (width == 8 && EBML::ReadElementSizeRest(stream, first) >= EBML::kUnknownSize)) return true;
    std::array<uint8_t, 8> bytes{};
    if (!EBML::EncodeVarIntFixed(newSize, bytes.data(), width)) return false;
    stream.Seek(field);
    stream.Write(bytes.data(), static_cast<uint64_t>(width));
    return true;
}

void TruncateAt(ParserRoot& root, EBML::StreamRW& stream, uint64_t offset) {
    stream.SetSize(offset);
    stream.m_range = EBML::Range{0, offset};
    root.segment.SegmentDataSize = offset - root.segment.SegmentDataBegin;
}

bool TryReplaceInPlace(ParserRoot& root, EBML::StreamRW& stream, const uint8_t* data, uint64_t size, uint32_t id) {
    if (!root.HasElement(id)) return false;
    const std::vector<uint8_t> header = Header(id, size);
    const uint64_t total = header.size() + size;
    const std::set<uint64_t> offsets = root.ElemOffsets(id);
    for (uint64_t p : offsets) {
        const uint64_t segEnd = root.SegmentEnd();
        const uint64_t span = EBML::MeasureAt(stream, id, p, segEnd);
        if (OverlapsOthers(root, id, p, p + span)) continue;
        if (p + span == segEnd) {
            // The last thing in the Segment: it may grow or shrink freely.
            const ParserSegmentV2& segment = root.segment;
            if (!RewriteSegmentSize(stream, root.SegmentOffset, p - segment.SegmentDataBegin + total)) return false;
            stream.Seek(p);
            stream.Write(header.data(), header.size());
            stream.Write(data, size);
            TruncateAt(root, stream, stream.Tell());
            RemoveOtherElements(root, stream, id, p);
            return true;
        }
        bool written = false;
        EBML::BoundedSeek(stream, root.segment.SegmentDataBegin);
        {
            EBML::ScopedRange range(stream, root.segment.SegmentDataSize);
            EBML::BoundedSeek(stream, p);
            written = EBML::TryOverwriteAt(stream, id, id, data, size);
        }
        if (written) {
            RemoveOtherElements(root, stream, id, p);
            return true;
        }
    }
    return false;
}

bool ReplaceElement(ParserRoot& root, EBML::StreamRW& stream, const uint8_t* data, uint64_t size, uint32_t id) {
    if (TryReplaceInPlace(root, stream, data, size, id)) return true;
    try {
        RelayoutSegment(root, stream, data, size, id);
        return true;
    } catch (const EBML::ParseError&) {
        return false;
    }
}

void RemoveElements(ParserRoot& root, EBML::StreamRW& stream, uint32_t id, const std::set<uint64_t>& offsets) {
    if (offsets.empty()) return;
    ParserSegmentV2& segment = root.segment;
    if (root.HasElement(kSeekHead)) {
        ParserSeekTablePurgeEntries purge(id, &offsets, segment.SegmentDataBegin);
        root.ForEachElement(kSeekHead, [&](uint64_t offset) {
            EBML::BoundedSeek(stream, offset);
            purge.RunOne(stream, kSeekHead);
        });
        // A stale entry becomes a Void, with the Voids directly behind it.
        for (const auto& [begin, end] : purge.entries) {
            EBML::WriteVoidAt(stream, begin, EBML::MeasureAt(stream, kSeek, begin, end));
        }
        for (const auto& [offset, total] : purge.staleChecks) EBML::WriteVoidAt(stream, offset, total);
    }
    for (uint64_t offset : offsets) segment.ElementTable[id].erase(offset);
    bool reachedEnd = false;
    for (uint64_t q : offsets) {
        const uint64_t segEnd = root.SegmentEnd();
        EBML::WriteVoidAt(stream, q, EBML::MeasureAt(stream, id, q, segEnd));
        reachedEnd = reachedEnd || stream.Tell() == segEnd;
    }
    if (reachedEnd) TrimSegmentTail(root, stream);
}

void RemoveOtherElements(ParserRoot& root, EBML::StreamRW& stream, uint32_t id, uint64_t keepOffset) {
    std::set<uint64_t> others = root.ElemOffsets(id);
    others.erase(keepOffset);
    RemoveElements(root, stream, id, others);
}

size_t RemoveAllElements(ParserRoot& root, EBML::StreamRW& stream, uint32_t removeMe) {
    if (!root.HasElement(removeMe)) return 0;
    const std::set<uint64_t> offsets = root.ElemOffsets(removeMe);
    RemoveElements(root, stream, removeMe, offsets);
    EBML::Check(root.ElemOffsets(removeMe).empty(), "this->ElemOffsets(removeMe).size() == 0");
    return offsets.size();
}

void TrimSegmentTail(ParserRoot& root, EBML::StreamRW& stream) {
    const ParserSegmentV2& segment = root.segment;
    uint64_t last = segment.SegmentDataBegin;
    for (const auto& [id, offsets] : segment.ElementTable) {
        if (!offsets.empty()) last = std::max(last, *offsets.rbegin());
    }
    uint64_t end = 0;
    bool found = false;
    EBML::BoundedSeek(stream, segment.SegmentDataBegin);
    {
        EBML::ScopedRange range(stream, segment.SegmentDataSize);
        EBML::BoundedSeek(stream, last);
        while (stream.Tell() < stream.m_range.end) {
            const uint32_t id = EBML::ReadElementId(stream);
            const uint64_t size = EBML::ReadElementSize(stream);
            if (size == EBML::kUnknownSize) EBML::Fail();
            EBML::BoundedSkip(stream, size);
            if (id == kVoid) continue;
            end = stream.Tell();
            found = true;
        }
    }
    if (!found || end >= root.SegmentEnd()) return;
    if (!RewriteSegmentSize(stream, root.SegmentOffset, end - segment.SegmentDataBegin)) EBML::Fail();
    TruncateAt(root, stream, end);
}

std::vector<uint8_t> EncodeSeekHeadBody(const ElementTableType& table, uint64_t dataBegin) {
    EBML::StreamWritableSimple body;
    for (const auto& [id, offsets] : table) {
        std::array<uint8_t, 8> idBytes{};
        const int idWidth = EBML::EncodeVarInt(id, idBytes.data());
        for (uint64_t offset : offsets) {
            EBML::StreamWritableSimple seek;
            EBML::WriteElement(seek, kSeekId, idBytes.data(), static_cast<uint64_t>(idWidth));
            EBML::WriteUIntElement(seek, kSeekPosition, offset - dataBegin);
            EBML::WriteElement(body, kSeek, seek.Data(), seek.Size());
        }
    }
    return body.Take();
}

}  // namespace Matroska
