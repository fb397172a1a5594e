#pragma once
// In-place retagging: one top-level element (Tags or Attachments) is replaced
// without moving a Cluster and without a temporary file, by overwriting it
// where it stands or by laying out the non-Cluster elements anew.

#include <cstdint>
#include <functional>
#include <set>
#include <vector>

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskaencode.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskaimpl.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskarecord.h"
#include "codecs/decoders/ffmpeg/qel-matroska/streamimpl.h"
#include "support/clLog.h"
#include "support/clString.h"

namespace Matroska {

class FileNotTaggable : public EBML::ParseError {
public:
    FileNotTaggable() : EBML::ParseError("File can't be retagged, please re-mux it with up-to-date Matroska tools") {}
};

// Editors return true when they changed what they were given.
using TagEditor = std::function<bool(TagRecord&)>;
using AttachmentEditor = std::function<bool(EBML::Chain&)>;

bool ReplaceElement(ParserRoot& root, EBML::StreamRW& stream, const uint8_t* data, uint64_t size, uint32_t id);
bool TryReplaceInPlace(ParserRoot& root, EBML::StreamRW& stream, const uint8_t* data, uint64_t size, uint32_t id);
void RelayoutSegment(ParserRoot& root, EBML::StreamRW& stream, const uint8_t* data, uint64_t size, uint32_t id);
void RemoveElements(ParserRoot& root, EBML::StreamRW& stream, uint32_t id, const std::set<uint64_t>& offsets);
void RemoveOtherElements(ParserRoot& root, EBML::StreamRW& stream, uint32_t id, uint64_t keepOffset);
size_t RemoveAllElements(ParserRoot& root, EBML::StreamRW& stream, uint32_t removeMe);
// Writes a new size into the Segment's size field in its present width;
// false, with nothing written, when it doesn't fit.
bool RewriteSegmentSize(EBML::StreamRW& stream, uint64_t segmentOffset, uint64_t newSize);
void TruncateAt(ParserRoot& root, EBML::StreamRW& stream, uint64_t offset);
void TrimSegmentTail(ParserRoot& root, EBML::StreamRW& stream);
std::vector<uint8_t> EncodeSeekHeadBody(const ElementTableType& table, uint64_t dataBegin);

}  // namespace Matroska

// Tags first, then Attachments; each editor may be empty. Logs its failures.
bool writeTagsInternal(const clString& path, const Matroska::TagEditor& tagEditor,
                       const Matroska::AttachmentEditor& attachmentEditor, const clLogTarget* log);
// The same over a file stream already open for reading and writing.
bool writeTagsInternal(streamImpl& stream, const Matroska::TagEditor& tagEditor,
                       const Matroska::AttachmentEditor& attachmentEditor, const clLogTarget* log);
