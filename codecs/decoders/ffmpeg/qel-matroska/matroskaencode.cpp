// Encoding of Tags and Attachments from the host's tags.

#include "codecs/decoders/ffmpeg/qel-matroska/matroskaencode.h"

#include <random>
#include <stdexcept>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskaids.h"
#include "image/imageinfo.h"
#include "tags/picturenaming.h"

namespace Matroska {
namespace {

constexpr uint64_t kDefaultLevel = 30;
constexpr uint64_t kMaxPictureSize = 0x8000000;

bool StartsWithNoCase(const clString& text, const char16_t* prefix) {
    return clString::Compare(text.Text(), prefix, -1, true) == 0;
}

// Pieces of a value split at each CR; an empty value has none.
std::vector<std::string> SplitAtCr(const std::string& value) {
    std::vector<std::string> pieces;
    if (value.empty()) return pieces;
    size_t start = 0;
    for (;;) {
        const size_t cr = value.find('\r', start);
        pieces.push_back(value.substr(start, cr == std::string::npos ? std::string::npos : cr - start));
        if (cr == std::string::npos) return pieces;
        start = cr + 1;
    }
}

bool SameValues(const std::vector<TagValue>& a, const std::vector<TagValue>& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i].value != b[i].value) return false;
    }
    return true;
}

bool MergeNumberPair(const IDTags& tags, const NumberPairRow& row, TagValueMap& map) {
    const IDTag* tag = tags.Find(clString::FromUtf8(row.idTagKey), false);
    if (tag == nullptr || tag->Value.Empty()) return false;
    const std::string value = tag->Value.ToUtf8();
    const size_t slash = value.find('/');
    const std::string number = value.substr(0, slash);
    const std::string total = slash == std::string::npos ? std::string() : value.substr(slash + 1);
    bool changed = ReplaceList(map, row.numberKey, {MakeTagValue(row.numberKey, number)});
    if (total.empty()) return map.erase(row.totalKey) != 0 || changed;
    return ReplaceList(map, row.totalKey, {MakeTagValue(row.totalKey, total)}) || changed;
}

// 128 random bits folded into one number.
uint64_t NewFileUid() {
    std::random_device random;
    uint64_t halves[2] = {};
    for (uint64_t& half : halves) half = uint64_t{random()} << 32 | random();
    return halves[0] ^ halves[1];
}

ParsedAttachment ParseAttachedFile(const EBML::chainEntry_t& entry) {
    EBML::StreamMem stream(entry.data.data(), entry.data.size());
    ParserAttachment parser;
    parser.Run(stream);
    return parser.attachment;
}

void CloseTag(EBML::StreamWritableSimple& body, EBML::StreamWritable& sink) {
    const std::vector<uint8_t> bytes = body.Take();
    EBML::WriteElement(sink, kTag, bytes.data(), bytes.size());
}

}  // namespace

std::string IDTagNameToMatroskaKey(const clString& name) {
    const std::string utf8 = name.ToUtf8();
    for (const NumberPairRow& row : NumberPairs) {
        if (EqualsNoCaseAscii(utf8, row.idTagKey)) return {};
    }
    for (const FriendlyNameRow& row : FriendlyNames) {
        if (EqualsNoCaseAscii(utf8, row.idTagKey)) return row.mapKey;
    }
    return UpperAscii(utf8);
}

TagValue MakeTagValue(const std::string& name, const std::string& value) {
    const std::string upper = UpperAscii(name);
    for (const TargetLevelRow& row : TargetLevels) {
        if (upper == row.genericKey) return TagValue{value, row.tagName, row.level, {}};
    }
    return TagValue{value, upper, kDefaultLevel, {}};
}

bool ReplaceList(TagValueMap& map, const std::string& key, std::vector<TagValue> values) {
    std::vector<TagValue>& list = map[key];
    if (SameValues(list, values)) return false;
    list = std::move(values);
    return true;
}

bool MergeIDTags(const IDTags& tags, TagRecord& record) {
    TagValueMap& map = record.Global;
    bool changed = false;
    for (const NumberPairRow& row : NumberPairs) changed = MergeNumberPair(tags, row, map) || changed;
    for (int i = 0; i < tags.Count(); ++i) {
        const IDTag& tag = tags[i];
        if (tag.Name.Length() > 0 && tag.Name[0] == u'_') continue;
        const std::string key = IDTagNameToMatroskaKey(tag.Name);
        if (key.empty()) continue;
        std::vector<TagValue> values;
        for (const std::string& piece : SplitAtCr(tag.Value.ToUtf8())) values.push_back(MakeTagValue(key, piece));
        changed = ReplaceList(map, key, std::move(values)) || changed;
    }
    return changed;
}

void EncodeTagValueMap(const TagValueMap& map, const uint8_t* prefix, uint64_t prefixSize, EBML::StreamWritable& sink) {
    EBML::StreamWritableSimple body;
    bool open = false;
    uint64_t openLevel = 0;
    for (const auto& [key, values] : map) {
        for (const TagValue& value : values) {
            if (!open || value.level != openLevel) {
                if (open) CloseTag(body, sink);
                EBML::StreamWritableSimple targets;
                targets.Write(prefix, prefixSize);
                EBML::WriteUIntElement(targets, kTargetTypeValue, value.level);
                EBML::WriteElement(body, kTargets, targets.Data(), targets.Size());
                open = true;
                openLevel = value.level;
            }
            if (!value.raw.empty()) {
                EBML::WriteElement(body, kSimpleTag, value.raw.data(), value.raw.size());
                continue;
            }
            EBML::StreamWritableSimple simple;
            const std::string name = UpperAscii(value.name);
            EBML::WriteElement(simple, kTagName, name.data(), name.size());
            EBML::WriteElement(simple, kTagString, value.value.data(), value.value.size());
            EBML::WriteElement(simple, kTagLanguage, "und", 3);
            EBML::WriteUIntElement(simple, kTagDefault, 1);
            EBML::WriteElement(body, kSimpleTag, simple.Data(), simple.Size());
        }
    }
    if (open) CloseTag(body, sink);
}

void EncodeScopedMaps(const ScopedTagMaps& uidMap, uint32_t uidId, EBML::StreamWritable& sink) {
    for (const auto& [uid, map] : uidMap) {
        EBML::StreamWritableSimple prefix;
        EBML::WriteUIntElement(prefix, uidId, uid);
        EncodeTagValueMap(map, prefix.Data(), prefix.Size(), sink);
    }
}

std::vector<uint8_t> EncodeTagsBody(const TagRecord& record) {
    EBML::StreamWritableSimple sink;
    if (!record.Global.empty()) EncodeTagValueMap(record.Global, nullptr, 0, sink);
    // Tracks and editions change places against the record's order; kept so.
    EncodeScopedMaps(record.Chapters, kTagChapterUid, sink);
    EncodeScopedMaps(record.Editions, kTagEditionUid, sink);
    EncodeScopedMaps(record.Tracks, kTagTrackUid, sink);
    EncodeScopedMaps(record.Attachments, kTagAttachmentUid, sink);
    return sink.Take();
}

std::set<std::string> ArtKeysToStems(const std::vector<clString>& names) {
    std::set<std::string> stems;
    for (const clString& name : names) {
        if (!IsArtKey(name)) continue;
        clString type, description;
        SplitArtKey(name, type, description);
        bool matched = false;
        for (const CoverNameRow& row : CoverNames) {
            if (!clString::EqualsNoCase(type.Text(), row.pictureType)) continue;
            stems.insert(UpperAscii(row.stem));
            matched = true;
        }
        if (!matched) stems.insert(UpperAscii(type.ToUtf8()));
    }
    return stems;
}

bool RemoveNamedImages(EBML::Chain& chain, const std::set<std::string>& stems) {
    const size_t before = chain.size();
    std::erase_if(chain, [&](const EBML::chainEntry_t& entry) {
        if (entry.id != kAttachedFile) return false;
        const ParsedAttachment attachment = ParseAttachedFile(entry);
        if (!StartsWith(attachment.mimeType, "image/")) return false;
        return stems.count(UpperAscii(StripExtension(EBML::CText(attachment.fileName)))) != 0;
    });
    return chain.size() < before;
}

bool RemoveAllImages(EBML::Chain& chain) {
    const size_t before = chain.size();
    std::erase_if(chain, [](const EBML::chainEntry_t& entry) {
        return entry.id == kAttachedFile && StartsWith(ParseAttachedFile(entry).mimeType, "image/");
    });
    return chain.size() < before;
}

std::vector<uint8_t> EncodeAttachedFile(const IDTag& tag) {
    clString type, description;
    SplitArtKey(tag.Name, type, description);
    if (tag.Data.Size() < 1 || tag.Data.Size() > kMaxPictureSize) EBML::Fail();
    ImageInfo info;
    try {
        MemoryImageSource source(tag.Data.Data(), tag.Data.Size());
        info = DetectImageType(source);
    } catch (...) {
        throw std::runtime_error("Malformed or unsupported image");
    }
    std::string fileName = type.ToUtf8();
    for (const CoverNameRow& row : CoverNames) {
        if (clString::EqualsNoCase(type.Text(), row.pictureType)) {
            fileName = row.stem;
            break;
        }
    }
    if (info.extension != nullptr) fileName += std::string(".") + info.extension;
    EBML::StreamWritableSimple body;
    EBML::WriteElement(body, kFileName, fileName.data(), fileName.size());
    const std::string mime = info.mime;
    EBML::WriteElement(body, kFileMimeType, mime.data(), mime.size());
    EBML::WriteElement(body, kFileData, tag.Data.Data(), tag.Data.Size());
    EBML::WriteUIntElement(body, kFileUid, NewFileUid());
    return body.Take();
}

bool MergeArt(const IDTags& tags, EBML::Chain& chain) {
    std::vector<clString> names;
    for (int i = 0; i < tags.Count(); ++i) {
        if (StartsWithNoCase(tags[i].Name, u"_albumart_")) names.push_back(tags[i].Name);
    }
    const std::set<std::string> stems = ArtKeysToStems(names);
    bool changed = !stems.empty() && RemoveNamedImages(chain, stems);
    EBML::Chain added;
    for (int i = 0; i < tags.Count(); ++i) {
        if (StartsWithNoCase(tags[i].Name, u"_albumart_")) added.push_back({kAttachedFile, EncodeAttachedFile(tags[i])});
    }
    if (added.empty()) return changed;
    chain.insert(chain.begin(), std::make_move_iterator(added.begin()), std::make_move_iterator(added.end()));
    return true;
}

}  // namespace Matroska
