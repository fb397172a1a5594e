#include "codecs/decoders/ffmpeg/qel-matroska/matroskaimpl.h"

#include "codecs/decoders/ffmpeg/qel-matroska/matroskaids.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

namespace Matroska {

void ParserRoot::Open(EBML::StreamRW& stream) {
    EBML::SetRange(stream, EBML::Range{0, stream.GetSize()});
    EBML::SeekToEbmlMagic(stream);
    Run(stream);
    segment.FollowSeekHeads(stream);
    segment.CheckNoneInsideAnother(stream);
}

void ParserRoot::OnElement(uint32_t id, uint64_t, EBML::Stream& stream) {
    switch (id) {
        case kSegment:
            if (segment.parsed) EBML::Fail();
            segment.Run(stream);
            SegmentOffset = elementStart;
            return;
        case kEbmlHeader: {
            if (header.parsed) EBML::Fail();
            header.Run(stream);
            const std::string docType = EBML::CText(header.docType);
            if (docType != "matroska" && docType != "webm") {
                throw EBML::ParseError("Unsupported document type: \"" + docType + "\"");
            }
            return;
        }
        case kCluster:
            if (firstRootCluster == 0) firstRootCluster = elementStart;
            return;
        default:
            return;
    }
}

void ParserRoot::OnEnd() {
    if (!segment.parsed || !header.parsed) EBML::Fail();
}

bool ParserRoot::HasElement(uint32_t id) const {
    const auto found = segment.ElementTable.find(id);
    return found != segment.ElementTable.end() && !found->second.empty();
}

const std::set<uint64_t>& ParserRoot::ElemOffsets(uint32_t id) const {
    static const std::set<uint64_t> kNone;
    const auto found = segment.ElementTable.find(id);
    return found == segment.ElementTable.end() ? kNone : found->second;
}

void ParserRoot::ForEachElement(uint32_t id, const std::function<void(uint64_t offset)>& function) const {
    const auto found = segment.ElementTable.find(id);
    if (found == segment.ElementTable.end()) return;
    // A copy: the function may change the table.
    const std::set<uint64_t> offsets = found->second;
    for (uint64_t offset : offsets) function(offset);
}

void ParserSegmentV2::OnBegin(EBML::Stream& stream) {
    SegmentDataBegin = stream.Tell();
    SegmentDataSize = SegmentDataBegin < stream.m_range.end ? stream.m_range.end - SegmentDataBegin : 0;
}

void ParserSegmentV2::OnElement(uint32_t id, uint64_t, EBML::Stream& stream) {
    if (id != kVoid && id != kCluster) ElementTable[id].insert(elementStart);
    if (id != kSeekHead) return;
    const uint64_t start = elementStart;
    ReadSeekEntries(stream);
    VisitedSeekHeads.insert(start);
}

bool StepOverClusterChildren(EBML::StreamSeekable& stream) {
    // Timestamp, SilentTracks, Position, PrevSize, SimpleBlock, BlockGroup,
    // EncryptedBlock, Void and CRC-32.
    static constexpr uint32_t kChildren[] = {0x67, 0x1854, 0x27, 0x2B, 0x23, 0x20, 0x2F, kVoid, kCrc32};
    while (stream.Tell() < stream.m_range.end) {
        const uint64_t start = stream.Tell();
        const uint32_t id = EBML::ReadElementId(stream);
        if (std::find(std::begin(kChildren), std::end(kChildren), id) == std::end(kChildren)) {
            stream.Seek(start);
            return true;
        }
        const uint64_t size = EBML::ReadElementSize(stream);
        const uint64_t body = stream.Tell();
        if (size >= EBML::kUnknownSize || size > stream.m_range.end - body) {
            stream.Seek(stream.m_range.end);
            return false;
        }
        EBML::BoundedSkip(stream, size);
    }
    return true;
}

void ParserSegmentV2::ReadSeekEntries(EBML::Stream& stream) {
    EBML::ForEachChild(stream, [this](uint32_t id, uint64_t, EBML::Stream& body) {
        if (id != kSeek) return;
        ParserSeekEntry entry;
        entry.Run(body);
        if (entry.position >= SegmentDataSize) EBML::Fail();
        ElementTable[entry.id].insert(SegmentDataBegin + entry.position);
    });
}

void ParserSegmentV2::FollowSeekHeads(EBML::StreamSeekable& stream) {
    for (;;) {
        const auto found = ElementTable.find(kSeekHead);
        if (found == ElementTable.end() || found->second.size() <= VisitedSeekHeads.size()) return;
        const std::set<uint64_t> offsets = found->second;
        for (uint64_t offset : offsets) {
            if (VisitedSeekHeads.count(offset) != 0) continue;
            EBML::BoundedSeek(stream, offset);
            if (EBML::ReadElementId(stream) != kSeekHead) EBML::Fail();
            const uint64_t size = EBML::ReadElementSize(stream);
            {
                EBML::ScopedRange range(stream, size);
                ReadSeekEntries(stream);
            }
            VisitedSeekHeads.insert(offset);
        }
    }
}

void ParserSegmentV2::CheckNoneInsideAnother(EBML::StreamSeekable& stream) const {
    std::vector<std::pair<uint64_t, uint64_t>> extents;
    for (const auto& [id, offsets] : ElementTable) {
        for (uint64_t offset : offsets) {
            try {
                EBML::BoundedSeek(stream, offset);
                EBML::ReadElementId(stream);
                const uint64_t size = EBML::ReadElementSize(stream);
                const uint64_t body = stream.Tell();
                // An element of unknown size has no end to hold others in.
                if (size >= EBML::kUnknownSize || size > UINT64_MAX - body) continue;
                extents.emplace_back(offset, body + size);
            } catch (const EBML::ParseError&) {
                // Its header isn't there: whoever uses this entry finds that out.
            }
        }
    }
    std::sort(extents.begin(), extents.end());
    uint64_t reach = 0;
    uint64_t reachBegin = 0;
    for (const auto& [begin, end] : extents) {
        if (begin < reach && begin != reachBegin) EBML::Fail();
        if (end > reach) {
            reach = end;
            reachBegin = begin;
        }
    }
}

void ParserSeekEntry::OnElement(uint32_t elementId, uint64_t size, EBML::Stream& stream) {
    if (elementId == kSeekId) {
        id = EBML::ReadElementId(stream);
        // The ID must fill the body; a range without limit can't be judged.
        if (stream.m_range.end == EBML::kNoLimit || stream.Tell() < stream.m_range.end) EBML::Fail();
        return;
    }
    if (elementId == kSeekPosition) position = EBML::ReadUInt(stream, size);
}

void ParserSeekEntry::OnEnd() {
    if (id == 0 || position == ~uint64_t{0}) EBML::Fail();
}

void ClusterFinder::OnElement(uint32_t id, uint64_t, EBML::Stream&) {
    if (id != kCluster) return;
    offset = elementStart;
    found = true;
}

void ClusterFinder::OnEnd() {
    if (!found) EBML::Fail();
}

}  // namespace Matroska
