#pragma once
// Hand-built EBML for the Matroska tests, written independently of the
// engine's own encoder: elements by held ID, and whole files around them.

#include <cstdint>
#include <string>

namespace ebmltest {

// The shortest var-int form (127 takes two bytes).
inline std::string VarInt(uint64_t value) {
    int width = 1;
    while (width < 8 && (value >= (uint64_t{1} << (7 * width)) || value == (uint64_t{1} << (7 * width)) - 1)) ++width;
    const uint64_t marked = value | uint64_t{1} << (7 * width);
    std::string bytes;
    for (int i = width - 1; i >= 0; --i) bytes += static_cast<char>(marked >> (8 * i));
    return bytes;
}
inline std::string El(uint32_t heldId, const std::string& body) { return VarInt(heldId) + VarInt(body.size()) + body; }
// An element whose size field says `sizeField` whatever the body holds.
inline std::string ElSized(uint32_t heldId, const std::string& sizeField, const std::string& body) { return VarInt(heldId) + sizeField + body; }
inline std::string UInt(uint32_t heldId, uint64_t value) {
    std::string body;
    for (; body.empty() || value != 0; value >>= 8) body.insert(body.begin(), static_cast<char>(value & 0xFF));
    return El(heldId, body);
}
inline constexpr uint32_t kHeader = 0x0A45DFA3, kDocType = 0x282, kSegment = 0x08538067, kSeekHead = 0x014D9B74,
                          kSeek = 0xDBB, kSeekId = 0x13AB, kSeekPosition = 0x13AC, kVoid = 0x6C, kInfo = 0x0549A966,
                          kTracks = 0x0654AE6B, kCluster = 0x0F43B675, kTags = 0x0254C367, kTag = 0x3373,
                          kTargets = 0x23C0, kTargetTypeValue = 0x28CA, kChapterUid = 0x23C4, kTrackUid = 0x23C5,
                          kSimpleTag = 0x27C8, kTagName = 0x5A3, kTagString = 0x487, kTagLanguage = 0x47A,
                          kAttachments = 0x0941A469, kAttachedFile = 0x21A7, kFileName = 0x66E,
                          kFileMimeType = 0x660, kFileData = 0x65C, kFileUid = 0x6AE, kCrc32 = 0x3F;

inline std::string Header(const std::string& docType = "matroska") { return El(kHeader, El(kDocType, docType)); }
inline std::string File(const std::string& segmentBody, const std::string& docType = "matroska") {
    return Header(docType) + El(kSegment, segmentBody);
}
inline const std::string kInfoElement = El(kInfo, UInt(0x2AD7B1, 1000000));   // a timestamp scale
inline std::string Seek(uint32_t heldId, uint64_t position) { return El(kSeek, El(kSeekId, VarInt(heldId)) + UInt(kSeekPosition, position)); }
inline std::string Simple(const std::string& name, const std::string& value) { return El(kSimpleTag, El(kTagName, name) + El(kTagString, value)); }
inline std::string Attached(const std::string& name, const std::string& mime, const std::string& data) {
    return El(kAttachedFile, El(kFileName, name) + El(kFileMimeType, mime) + El(kFileData, data) + UInt(kFileUid, 7));
}
// Stand-in audio: a Cluster whose body is letters.
inline std::string Cluster(size_t bytes = 64) { return El(kCluster, std::string(bytes, 'a')); }

}  // namespace ebmltest
