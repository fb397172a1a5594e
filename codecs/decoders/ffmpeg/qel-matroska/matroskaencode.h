#pragma once
// Turning the host's tags into the bodies of Tags and Attachments: a merge
// into what the file holds, never a replacement. Nothing here touches the file.

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskarecord.h"
#include "support/clString.h"
#include "tags/idtags.h"

namespace EBML {

// One child element held in memory: its ID and its body without header.
struct chainEntry_t {
    uint32_t id = 0;
    std::vector<uint8_t> data;
};
using Chain = std::vector<chainEntry_t>;

}  // namespace EBML

namespace Matroska {

std::string IDTagNameToMatroskaKey(const clString& name);
TagValue MakeTagValue(const std::string& name, const std::string& value);
// Replaces the list under `key` unless the values are equal; true if it changed.
bool ReplaceList(TagValueMap& map, const std::string& key, std::vector<TagValue> values);
// Merges the pieces of one host value into the list under `key`; true if it changed.
bool MergeValues(TagValueMap& map, const std::string& key, std::vector<std::string> pieces);
bool MergeIDTags(const IDTags& tags, TagRecord& record);

void EncodeTagValueMap(const TagValueMap& map, const uint8_t* prefix, uint64_t prefixSize, EBML::StreamWritable& sink);
void EncodeScopedMaps(const ScopedTagMaps& uidMap, uint32_t uidId, EBML::StreamWritable& sink);
// The body of the Tags element for a record.
std::vector<uint8_t> EncodeTagsBody(const TagRecord& record);

std::set<std::string> ArtKeysToStems(const std::vector<clString>& names);
// Removes the image attachments whose stem is named; true if any went.
bool RemoveNamedImages(EBML::Chain& chain, const std::set<std::string>& stems);
// Removes every image attachment; true if any went.
bool RemoveAllImages(EBML::Chain& chain);
std::vector<uint8_t> EncodeAttachedFile(const IDTag& tag);
bool MergeArt(const IDTags& tags, EBML::Chain& chain);
// Deletes from `record.Global`: everything, or the named keys.
bool DeleteFromTagRecord(bool deleteAll, const std::vector<clString>& names, TagRecord& record);

}  // namespace Matroska
