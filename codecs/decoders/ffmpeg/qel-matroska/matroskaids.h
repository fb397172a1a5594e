#pragma once
// Matroska element IDs as the engine holds them: the length marker removed.

#include <cstdint>

namespace Matroska {

inline constexpr uint32_t kEbmlHeader = 0x0A45DFA3;
inline constexpr uint32_t kSegment = 0x08538067;
inline constexpr uint32_t kSeekHead = 0x014D9B74;
inline constexpr uint32_t kSeek = 0xDBB;
inline constexpr uint32_t kSeekId = 0x13AB;
inline constexpr uint32_t kSeekPosition = 0x13AC;
inline constexpr uint32_t kVoid = 0x6C;
inline constexpr uint32_t kCrc32 = 0x3F;
inline constexpr uint32_t kInfo = 0x0549A966;
inline constexpr uint32_t kTracks = 0x0654AE6B;
inline constexpr uint32_t kCues = 0x0C53BB6B;
inline constexpr uint32_t kCluster = 0x0F43B675;
inline constexpr uint32_t kTags = 0x0254C367;
inline constexpr uint32_t kTag = 0x3373;
inline constexpr uint32_t kTargets = 0x23C0;
inline constexpr uint32_t kTargetTypeValue = 0x28CA;
inline constexpr uint32_t kTagChapterUid = 0x23C4;
inline constexpr uint32_t kTagTrackUid = 0x23C5;
inline constexpr uint32_t kTagAttachmentUid = 0x23C6;
inline constexpr uint32_t kTagEditionUid = 0x23C9;
inline constexpr uint32_t kSimpleTag = 0x27C8;
inline constexpr uint32_t kTagName = 0x5A3;
inline constexpr uint32_t kTagLanguage = 0x47A;
inline constexpr uint32_t kTagDefault = 0x484;
inline constexpr uint32_t kTagString = 0x487;
inline constexpr uint32_t kAttachments = 0x0941A469;
inline constexpr uint32_t kAttachedFile = 0x21A7;
inline constexpr uint32_t kFileName = 0x66E;
inline constexpr uint32_t kFileMimeType = 0x660;
inline constexpr uint32_t kFileData = 0x65C;
inline constexpr uint32_t kFileUid = 0x6AE;

}  // namespace Matroska
