#pragma once
// The structure walk of a Matroska or WebM file: where its top-level elements
// lie (a table from element ID to file offsets) and where the Segment's body
// begins and ends. It reads headers only; Clusters are stepped over.

#include <cstdint>
#include <functional>
#include <map>
#include <set>

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"

namespace Matroska {

using ElementTableType = std::map<uint32_t, std::set<uint64_t>>;

class ParserSegmentV2 : public EBML::Parser {
public:
    void OnBegin(EBML::Stream& stream) override;
    void OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) override;
    // The top-level walk stops behind the first SeekHead: from there on the
    // SeekHead is believed.
    bool KeepGoing() override { return VisitedSeekHeads.empty(); }

    // Reads SeekHeads that Seek entries point at, until none is new.
    void FollowSeekHeads(EBML::StreamSeekable& stream);
    // Fails when a known element begins inside another one: a Seek entry
    // that points into the middle of an element proves nothing about it.
    void CheckNoneInsideAnother(EBML::StreamSeekable& stream) const;

    ElementTableType ElementTable;
    std::set<uint64_t> VisitedSeekHeads;
    uint64_t SegmentDataBegin = 0;
    uint64_t SegmentDataSize = 0;

private:
    void ReadSeekEntries(EBML::Stream& stream);
};

class ParserRoot : private EBML::Parser {
public:
    // The opening sequence: the range becomes the whole file, the walk runs
    // from the EBML magic, and chained SeekHeads are followed.
    void Open(EBML::StreamRW& stream);

    bool HasElement(uint32_t id) const;
    const std::set<uint64_t>& ElemOffsets(uint32_t id) const;
    void ForEachElement(uint32_t id, const std::function<void(uint64_t offset)>& function) const;
    uint64_t SegmentEnd() const { return segment.SegmentDataBegin + segment.SegmentDataSize; }

    ParserSegmentV2 segment;
    uint64_t SegmentOffset = 0;
    EBML::ParserEBML header;
    uint64_t firstRootCluster = 0;

private:
    void OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) override;
    void OnEnd() override;
};

class ParserSeekEntry : public EBML::Parser {
public:
    void OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) override;
    void OnEnd() override;

    uint32_t id = 0;
    uint64_t position = ~uint64_t{0};
};

// Steps over the children of a Cluster of unknown size, from the stream's
// position to the first element that can't be a Cluster's child or to the end
// of the range. False, with the stream at the range's end, when a child runs
// past that end: a torn last Cluster.
bool StepOverClusterChildren(EBML::StreamSeekable& stream);

// Finds the first Cluster of a Segment's body.
class ClusterFinder : public EBML::Parser {
public:
    void OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) override;
    void OnEnd() override;
    bool KeepGoing() override { return !found; }

    bool found = false;
    uint64_t offset = 0;
};

}  // namespace Matroska
