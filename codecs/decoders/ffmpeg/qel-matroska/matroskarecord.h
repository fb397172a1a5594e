#pragma once
// Matroska Tags and Attachments held in memory: the tag record that reading
// fills and writing edits, the parsers that fill it, and the name tables that
// map Matroska names to the host's.

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskaimpl.h"
#include "support/clString.h"
#include "tags/idtags.h"

namespace Matroska {

// One SimpleTag. A value with `raw` bytes is written back as they stand.
struct TagValue {
    std::string value;   // UTF-8
    std::string name;    // upper-cased
    uint64_t level = 0;
    std::vector<uint8_t> raw;
    // The body of the Targets it was read under, when that Tag aimed at one
    // place only; written back as it stood, TargetType text and all.
    std::optional<std::vector<uint8_t>> targets;
};

using TagValueMap = std::map<std::string, std::vector<TagValue>>;
using ScopedTagMaps = std::map<uint64_t, TagValueMap>;

struct TagRecord {
    TagValueMap Global;   // the only part the host sees
    ScopedTagMaps Chapters;
    ScopedTagMaps Tracks;
    ScopedTagMaps Editions;
    ScopedTagMaps Attachments;
    // The UID of the file's one audio track, when it has exactly one.
    std::optional<uint64_t> OnlyAudioTrack;
};

// The keys of the only audio track's tags that the host sees: those the
// file-level tags lack (or all, shadowed or not), leaving out the track's
// statistics.
std::set<std::string> ShownTrackKeys(const TagRecord& record, bool evenShadowed = false);
// The map that holds what the host sees, or would see, under `key`.
TagValueMap& MapShowing(TagRecord& record, const std::string& key);

struct NumberPairRow {
    const char* idTagKey;
    const char* numberKey;
    const char* totalKey;
};
struct FriendlyNameRow {
    const char* idTagKey;
    const char* mapKey;
};
struct TargetLevelRow {
    const char* genericKey;
    const char* tagName;
    uint64_t level;
};
struct CoverNameRow {
    const char* stem;
    const char16_t* pictureType;
};

extern const std::array<NumberPairRow, 2> NumberPairs;
extern const std::array<FriendlyNameRow, 3> FriendlyNames;
extern const std::array<TargetLevelRow, 12> TargetLevels;
extern const std::array<CoverNameRow, 7> CoverNames;

class ParserTagTargets : public EBML::Parser {
public:
    void OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) override;
    bool AimsAtOne() const;   // a UID set is filled and no chapter UID is 0

    std::set<uint64_t> chapterUids;
    std::set<uint64_t> trackUids;
    std::set<uint64_t> editionUids;
    std::set<uint64_t> attachmentUids;
    bool hasTargetTypeValue = false;
    uint64_t targetTypeValue = 50;
};

class MyParserSimpleTag : public EBML::Parser {
public:
    void OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) override;

    std::string name;
    std::string value;
    bool hasValue = false;
};

struct SimpleTagRecord {
    std::vector<uint8_t> raw;
    std::string name;
    std::string value;
    bool hasValue = false;
};

class MyParserTag : public EBML::Parser {
public:
    void OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) override;

    ParserTagTargets targets;
    std::vector<uint8_t> targetsBody;
    std::vector<SimpleTagRecord> records;
};

class MyParserTags : public EBML::Parser {
public:
    explicit MyParserTags(TagRecord* target) : record(target) {}
    void OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) override;

    TagRecord* record;
};

struct ParsedAttachment {
    std::string fileName;
    std::string mimeType;
    uint64_t dataOffset = ~uint64_t{0};
    uint64_t dataSize = ~uint64_t{0};
};

class ParserAttachment : public EBML::Parser {
public:
    void OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) override;
    void OnEnd() override;

    ParsedAttachment attachment;
};

class ParserAttachments : public EBML::Parser {
public:
    void OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) override;

    std::vector<ParsedAttachment> attachments;
};

void ReadTagRecord(TagRecord& record, const ParserRoot& root, EBML::StreamSeekable& stream);
void AddTagRecord(const MyParserTag& tag, TagRecord& record);
void TagRecordToIDTags(const TagRecord& record, IDTags& tags);
void AttachmentsToIDTags(EBML::StreamSeekable& stream, const std::vector<ParsedAttachment>& attachments, IDTags& tags);
clString AttachmentArtKey(int index, const std::string& fileName);
std::string StripExtension(const std::string& fileName);

// ASCII a to z only.
std::string UpperAscii(std::string text);
bool EqualsNoCaseAscii(const std::string& a, const std::string& b);
bool StartsWith(const std::string& text, const char* prefix);

}  // namespace Matroska
