// Reading Tags and Attachments into the tag record and into the host's tags.

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskaids.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskarecord.h"

namespace Matroska {
namespace {

constexpr uint64_t kGlobalLevel = 50;
constexpr uint64_t kAimedLevel = 30;
constexpr uint64_t kMaxPictureSize = 0x8000000;   // 128 MiB

uint64_t LevelOf(const ParserTagTargets& targets) {
    if (targets.hasTargetTypeValue) return targets.targetTypeValue;
    const bool none = targets.chapterUids.empty() && targets.trackUids.empty() && targets.editionUids.empty() &&
                      targets.attachmentUids.empty();
    if (none) return kGlobalLevel;
    // Only the chapter set decides, even where other UIDs are the ones present.
    return targets.chapterUids.count(0) != 0 ? kGlobalLevel : kAimedLevel;
}

uint64_t Distance(uint64_t a, uint64_t b) { return a > b ? a - b : b - a; }

// The generic key of a TagName at a level: the closest row, the earlier on a tie.
std::string KeyOf(const std::string& name, uint64_t level) {
    const TargetLevelRow* best = nullptr;
    for (const TargetLevelRow& row : TargetLevels) {
        if (name != row.tagName) continue;
        if (best == nullptr || Distance(row.level, level) < Distance(best->level, level)) best = &row;
    }
    return best ? std::string(best->genericKey) : EBML::CText(name);
}

void AddToScoped(ScopedTagMaps& maps, const std::set<uint64_t>& uids, const std::string& key, const TagValue& value) {
    for (uint64_t uid : uids) maps[uid][key].push_back(value);
}

// The values of a list joined by CR; empty values in front leave no separator.
clString JoinValues(const std::vector<TagValue>& values) {
    clString text;
    for (const TagValue& value : values) {
        if (!text.Empty()) text.Append(u'\r');
        text.Append(clString::FromUtf8(EBML::CText(value.value)));
    }
    return text;
}

const std::vector<TagValue>* NonEmptyList(const TagValueMap& map, const char* key) {
    const auto found = map.find(key);
    return found == map.end() || found->second.empty() ? nullptr : &found->second;
}

bool IsNumberPairKey(const std::string& key) {
    for (const NumberPairRow& row : NumberPairs) {
        if (key == row.numberKey || key == row.totalKey) return true;
    }
    return false;
}

std::string FriendlyName(const std::string& key) {
    for (const FriendlyNameRow& row : FriendlyNames) {
        if (key == row.mapKey) return row.idTagKey;
    }
    return key;
}

}  // namespace

bool ParserTagTargets::AimsAtOne() const {
    const bool any = !chapterUids.empty() || !trackUids.empty() || !editionUids.empty() || !attachmentUids.empty();
    return any && chapterUids.count(0) == 0;
}

void ParserTagTargets::OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) {
    switch (id) {
        case kTagChapterUid: chapterUids.insert(EBML::ReadUInt(stream, size)); return;
        case kTagTrackUid: trackUids.insert(EBML::ReadUInt(stream, size)); return;
        case kTagEditionUid: editionUids.insert(EBML::ReadUInt(stream, size)); return;
        case kTagAttachmentUid: attachmentUids.insert(EBML::ReadUInt(stream, size)); return;
        case kTargetTypeValue:
            targetTypeValue = EBML::ReadUInt(stream, size);
            hasTargetTypeValue = true;
            return;
        default: return;
    }
}

void MyParserSimpleTag::OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) {
    if (id == kTagName) {
        name = UpperAscii(EBML::ReadUtf8(stream, size));
        return;
    }
    if (id != kTagString) return;
    if (hasValue) EBML::Fail();
    value = EBML::ReadUtf8(stream, size);
    hasValue = true;
}

void MyParserTag::OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) {
    if (id == kTargets) {
        if (targets.parsed) EBML::Fail();
        targetsBody = EBML::ReadBinary(stream, size);
        EBML::StreamMem memory(targetsBody.data(), targetsBody.size());
        targets.Run(memory);
        return;
    }
    if (id != kSimpleTag || size == 0) return;
    std::vector<uint8_t> body = EBML::ReadBinary(stream, size);
    EBML::StreamMem memory(body.data(), body.size());
    MyParserSimpleTag simple;
    simple.Run(memory);
    records.push_back({std::move(body), std::move(simple.name), std::move(simple.value), simple.hasValue});
}

void MyParserTags::OnElement(uint32_t id, uint64_t, EBML::Stream& stream) {
    if (id != kTag) return;
    MyParserTag tag;
    tag.Run(stream);
    AddTagRecord(tag, *record);
}

void AddTagRecord(const MyParserTag& tag, TagRecord& record) {
    const ParserTagTargets& targets = tag.targets;
    const uint64_t level = LevelOf(targets);
    const size_t places = targets.chapterUids.size() + targets.trackUids.size() + targets.editionUids.size() +
                          targets.attachmentUids.size();
    std::optional<std::vector<uint8_t>> kept;
    if (!targets.AimsAtOne() || places == 1) kept = tag.targetsBody;
    for (const SimpleTagRecord& simple : tag.records) {
        const std::string key = simple.hasValue ? KeyOf(simple.name, level) : std::string();
        const TagValue value{simple.value, simple.name, level, simple.raw, kept};
        if (!targets.AimsAtOne()) {
            record.Global[key].push_back(value);
            continue;
        }
        AddToScoped(record.Chapters, targets.chapterUids, key, value);
        AddToScoped(record.Editions, targets.editionUids, key, value);
        AddToScoped(record.Tracks, targets.trackUids, key, value);
        AddToScoped(record.Attachments, targets.attachmentUids, key, value);
    }
}

// The UID of the one audio track, if there is exactly one. Tracks that
// can't be read leave it unknown: they don't stop the tags being read.
std::optional<uint64_t> FindOnlyAudioTrack(const ParserRoot& root, EBML::StreamSeekable& stream) {
    constexpr uint32_t kTrackEntry = 0x2E, kTrackType = 0x03, kTrackUid = 0x33C5;
    constexpr uint64_t kAudio = 2;
    std::vector<uint64_t> audio;
    try {
        root.ForEachElement(kTracks, [&](uint64_t offset) {
            EBML::BoundedSeek(stream, offset);
            if (EBML::ReadElementId(stream) != kTracks) EBML::Fail();
            EBML::ScopedRange range(stream, EBML::ReadElementSize(stream));
            EBML::ForEachChild(stream, [&](uint32_t id, uint64_t, EBML::Stream& entry) {
                if (id != kTrackEntry) return;
                uint64_t type = 0, uid = 0;
                EBML::ForEachChild(entry, [&](uint32_t child, uint64_t size, EBML::Stream& body) {
                    if (child == kTrackType) type = EBML::ReadUInt(body, size);
                    if (child == kTrackUid) uid = EBML::ReadUInt(body, size);
                });
                if (type == kAudio) audio.push_back(uid);
            });
        });
    } catch (const EBML::ParseError&) {
        return std::nullopt;
    }
    if (audio.size() != 1) return std::nullopt;
    return audio.front();
}

void ReadTagRecord(TagRecord& record, const ParserRoot& root, EBML::StreamSeekable& stream) {
    root.ForEachElement(kTags, [&](uint64_t offset) {
        EBML::BoundedSeek(stream, offset);
        MyParserTags parser(&record);
        parser.RunOne(stream, kTags);
    });
    record.OnlyAudioTrack = FindOnlyAudioTrack(root, stream);
}

std::set<std::string> ShownTrackKeys(const TagRecord& record, bool evenShadowed) {
    std::set<std::string> shown;
    if (!record.OnlyAudioTrack) return shown;
    const auto track = record.Tracks.find(*record.OnlyAudioTrack);
    if (track == record.Tracks.end()) return shown;
    // A muxer's statistics of the stream, named in _STATISTICS_TAGS, and its
    // DURATION are facts about the audio, not tags a person set.
    std::set<std::string> statistics = {"DURATION"};
    if (const auto named = track->second.find("_STATISTICS_TAGS"); named != track->second.end() && !named->second.empty()) {
        const std::string names = EBML::CText(named->second.front().value);
        for (size_t at = 0; at < names.size();) {
            const size_t space = std::min(names.find(' ', at), names.size());
            statistics.insert(UpperAscii(names.substr(at, space - at)));
            at = space + 1;
        }
    }
    for (const auto& [key, values] : track->second) {
        if (key.empty() || key[0] == '_' || values.empty() || statistics.count(key) != 0) continue;
        const auto global = record.Global.find(key);
        if (evenShadowed || global == record.Global.end() || global->second.empty()) shown.insert(key);
    }
    return shown;
}

TagValueMap& MapShowing(TagRecord& record, const std::string& key) {
    if (ShownTrackKeys(record).count(key) == 0) return record.Global;
    return record.Tracks[*record.OnlyAudioTrack];
}

void TagRecordToIDTags(const TagRecord& record, IDTags& tags) {
    tags.Clear();
    TagValueMap global = record.Global;
    for (const std::string& key : ShownTrackKeys(record)) global[key] = record.Tracks.at(*record.OnlyAudioTrack).at(key);
    for (const NumberPairRow& row : NumberPairs) {
        const std::vector<TagValue>* number = NonEmptyList(global, row.numberKey);
        if (number == nullptr) continue;
        clString text = clString::FromUtf8(EBML::CText(number->front().value));
        if (const std::vector<TagValue>* total = NonEmptyList(global, row.totalKey)) {
            text.Append(u"/");
            text.Append(clString::FromUtf8(EBML::CText(total->front().value)));
        }
        tags.Add(clString::FromUtf8(row.idTagKey), text);
    }
    for (const auto& [key, values] : global) {
        if (key.empty() || IsNumberPairKey(key)) continue;
        const clString text = JoinValues(values);
        if (!text.Empty()) tags.Add(clString::FromUtf8(FriendlyName(key)), text);
    }
}

void ParserAttachment::OnElement(uint32_t id, uint64_t size, EBML::Stream& stream) {
    switch (id) {
        case kFileData:
            if (attachment.dataOffset != ~uint64_t{0} || attachment.dataSize != ~uint64_t{0}) EBML::Fail();
            attachment.dataOffset = stream.Tell();
            attachment.dataSize = size;
            return;
        case kFileMimeType:
            if (!attachment.mimeType.empty()) EBML::Fail();
            attachment.mimeType = EBML::ReadUtf8(stream, size);
            if (attachment.mimeType.empty()) EBML::Fail();
            return;
        case kFileName:
            if (!attachment.fileName.empty()) EBML::Fail();
            attachment.fileName = EBML::ReadUtf8(stream, size);
            if (attachment.fileName.empty()) EBML::Fail();
            return;
        default:
            return;
    }
}

void ParserAttachment::OnEnd() {
    if (attachment.dataOffset == ~uint64_t{0} || attachment.dataSize == ~uint64_t{0} || attachment.fileName.empty()) {
        EBML::Fail();
    }
}

void ParserAttachments::OnElement(uint32_t id, uint64_t, EBML::Stream& stream) {
    if (id != kAttachedFile) return;
    ParserAttachment parser;
    parser.Run(stream);
    attachments.push_back(std::move(parser.attachment));
}

void AttachmentsToIDTags(EBML::StreamSeekable& stream, const std::vector<ParsedAttachment>& attachments,
                         IDTags& tags) {
    int n = 0;
    for (const ParsedAttachment& attachment : attachments) {
        if (!StartsWith(attachment.mimeType, "image/") || attachment.dataSize > kMaxPictureSize) continue;
        ++n;
        EBML::BoundedSeek(stream, attachment.dataOffset);
        const std::vector<uint8_t> bytes = EBML::ReadBinary(stream, attachment.dataSize);
        tags.AddBinary(AttachmentArtKey(n, EBML::CText(attachment.fileName)), bytes.data(),
                       static_cast<uint32_t>(bytes.size()));
    }
}

}  // namespace Matroska
