#pragma once
// An independent look at a Matroska file, for checking what the engine wrote:
// the Segment's children, whether every Seek entry points at an element of its
// ID, and whether every CRC-32 holds.

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ebmltest {

// A child of the Segment: its id with the length marker, the id's offset, the header and body's total.
struct TopElement { uint32_t id = 0; uint64_t offset = 0, total = 0; };
struct SegmentView {
    uint64_t dataBegin = 0, dataEnd = 0;
    std::vector<TopElement> children;
    std::string error;   // empty when the walk reached the Segment's end
};
// A var-int at `at`, stepped over; an ID keeps its length marker.
inline bool ReadVar(const std::string& b, uint64_t& at, uint64_t& value, bool keepMarker) {
    if (at >= b.size()) return false;
    const auto first = static_cast<uint8_t>(b[at]);
    int width = 1;
    while (width <= 8 && (first & (0x80 >> (width - 1))) == 0) ++width;
    if (width > 8 || at + width > b.size()) return false;
    value = keepMarker ? first : (first & ((0x80u >> (width - 1)) - 1));
    for (int i = 1; i < width; ++i) value = value << 8 | static_cast<uint8_t>(b[at + i]);
    at += width;
    return true;
}
inline bool Unknown(uint64_t size) { return size == 127 || size == (uint64_t{1} << 56) - 1; }

inline SegmentView WalkSegment(const std::string& b) {
    SegmentView view;
    uint64_t at = 0, id = 0, size = 0;
    if (!ReadVar(b, at, id, true) || !ReadVar(b, at, size, false)) return {0, 0, {}, "no header"};
    at += size;
    if (!ReadVar(b, at, id, true) || id != 0x18538067 || !ReadVar(b, at, size, false)) return {0, 0, {}, "no segment"};
    view.dataBegin = at;
    view.dataEnd = Unknown(size) || at + size > b.size() ? b.size() : at + size;
    while (at < view.dataEnd) {
        TopElement e{0, at, 0};
        const bool read = ReadVar(b, at, id, true) && ReadVar(b, at, size, false);
        if (read && id == 0x1F43B675 && Unknown(size)) {
            // A Cluster of unknown size ends where an element that isn't its child begins.
            const std::string children = "\xE7\xA7\xAB\xA3\xA0\xAF\xEC\xBF";
            for (uint64_t child = 0, childAt = at; childAt < view.dataEnd; childAt = at) {
                if (children.find(b[childAt]) == std::string::npos || !ReadVar(b, at, child, true) ||
                    !ReadVar(b, at, size, false) || (at += size) > view.dataEnd) {
                    at = childAt;
                    break;
                }
            }
            size = 0;
        }
        if (!read || at + size > view.dataEnd) {
            view.error = "bad element at " + std::to_string(e.offset);
            return view;
        }
        e.id = static_cast<uint32_t>(id);
        e.total = (at += size) - e.offset;
        view.children.push_back(e);
    }
    return view;
}
// The children of the element at `at`, as far as they parse inside it.
struct Child { uint64_t id, offset, body, end; };
inline std::vector<Child> Children(const std::string& b, uint64_t at) {
    uint64_t id = 0, size = 0;
    std::vector<Child> children;
    if (!ReadVar(b, at, id, true) || !ReadVar(b, at, size, false)) return children;
    for (const uint64_t end = std::min<uint64_t>(at + size, b.size()); at < end;) {
        Child c{0, at, 0, 0};
        if (!ReadVar(b, at, c.id, true) || !ReadVar(b, at, size, false) || at + size > end) break;
        children.push_back({c.id, c.offset, at, at += size});
    }
    return children;
}
// "" when every Seek entry of every SeekHead points at an element of its ID.
inline std::string SeekProblems(const std::string& b) {
    const SegmentView view = WalkSegment(b);
    if (!view.error.empty()) return view.error;
    std::map<uint64_t, uint32_t> idAt;
    for (const TopElement& e : view.children) idAt[e.offset] = e.id;
    std::string problems;
    for (const TopElement& e : view.children) {
        const std::vector<Child> seeks = e.id == 0x114D9B74 ? Children(b, e.offset) : std::vector<Child>{};
        if (!seeks.empty() && seeks.back().end != e.offset + e.total) problems += "bad SeekHead;";
        for (const Child& seek : seeks) {
            if (seek.id != 0x4DBB) continue;   // a Void where an entry was
            uint64_t target = 0, position = 0;
            for (const Child& field : Children(b, seek.offset)) {
                uint64_t value = 0;
                for (uint64_t i = field.body; i < field.end; ++i) value = value << 8 | static_cast<uint8_t>(b[i]);
                (field.id == 0x53AB ? target : position) = value;
            }
            const auto found = idAt.find(view.dataBegin + position);
            if (found == idAt.end() || found->second != target) problems += "entry to " + std::to_string(position) + ";";
        }
    }
    return problems;
}
// Bitwise CRC-32 (IEEE, reflected), independent of the engine's.
inline uint32_t Crc32(const std::string& b, uint64_t from, uint64_t to) {
    uint32_t crc = 0xFFFFFFFF;
    for (uint64_t i = from; i < to; ++i) {
        crc ^= static_cast<uint8_t>(b[i]);
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (0xEDB88320 & (0 - (crc & 1)));
    }
    return ~crc;
}
// "" when every CRC-32 of a top-level element (a Cluster's aside) stands first
// and holds, little-endian, over the bytes behind it.
inline std::string CrcProblems(const std::string& b) {
    std::string problems;
    for (const TopElement& e : WalkSegment(b).children) {
        const std::vector<Child> kids = e.id == 0x1F43B675 ? std::vector<Child>{} : Children(b, e.offset);
        for (const Child& k : kids) {
            uint32_t stored = 0;
            for (uint64_t i = k.end; k.id == 0xBF && i-- > k.body;) stored = stored << 8 | static_cast<uint8_t>(b[i]);
            if (k.id == 0xBF && (k.offset != kids[0].offset || k.end != k.body + 4 || stored != Crc32(b, k.end, e.offset + e.total)))
                problems += "CRC-32 at " + std::to_string(k.offset) + ";";
        }
    }
    return problems;
}
// The Clusters' bytes by offset.
inline std::map<uint64_t, std::string> Clusters(const std::string& b) {
    std::map<uint64_t, std::string> clusters;
    for (const TopElement& e : WalkSegment(b).children)
        if (e.id == 0x1F43B675) clusters[e.offset] = b.substr(e.offset, e.total);
    return clusters;
}
// "Name;" of the top level, with short names of the usual elements.
inline std::string Layout(const std::string& b) {
    const std::map<uint32_t, std::string> names = {
        {0x114D9B74, "SeekHead"}, {0xEC, "Void"}, {0x1549A966, "Info"}, {0x1654AE6B, "Tracks"},
        {0x1C53BB6B, "Cues"}, {0x1F43B675, "Cluster"}, {0x1254C367, "Tags"}, {0x1941A469, "Attachments"}};
    const SegmentView view = WalkSegment(b);
    std::string out;
    for (const TopElement& e : view.children) out += (names.count(e.id) ? names.at(e.id) : std::to_string(e.id)) + ";";
    return out + view.error;
}

}  // namespace ebmltest
