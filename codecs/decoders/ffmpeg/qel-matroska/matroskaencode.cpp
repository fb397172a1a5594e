// Encoding of Tags and Attachments from the host's tags.

#include "codecs/decoders/ffmpeg/qel-matroska/matroskaencode.h"

#include <algorithm>
#include <cstring>
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

bool MergeNumberPair(const IDTags& tags, const NumberPairRow& row, TagRecord& record) {
    TagValueMap& map = MapShowing(record, row.numberKey);
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
        if (upper == row.genericKey) return TagValue{value, row.tagName, row.level, {}, std::nullopt};
    }
    return TagValue{value, upper, kDefaultLevel, {}, std::nullopt};
}

bool ReplaceList(TagValueMap& map, const std::string& key, std::vector<TagValue> values) {
    std::vector<TagValue>& list = map[key];
    if (SameValues(list, values)) return false;
    list = std::move(values);
    return true;
}

bool MergeValues(TagValueMap& map, const std::string& key, std::vector<std::string> pieces) {
    std::vector<TagValue>& list = map[key];
    const bool same = list.size() == pieces.size() &&
                      std::equal(list.begin(), list.end(), pieces.begin(),
                                 [](const TagValue& value, const std::string& piece) { return value.value == piece; });
    if (same) return false;
    // The name addresses the values at its own level when the file has any
    // there; values at other levels that the read showed under the same name
    // stay as they are, and a piece that repeats one of them is that value.
    const uint64_t level = MakeTagValue(key, {}).level;
    const bool anyAtLevel =
        std::any_of(list.begin(), list.end(), [level](const TagValue& value) { return value.level == level; });
    std::vector<TagValue> kept, addressed;
    for (TagValue& value : list) (anyAtLevel && value.level != level ? kept : addressed).push_back(std::move(value));
    for (const TagValue& value : kept) {
        const auto echoed = std::find(pieces.begin(), pieces.end(), value.value);
        if (echoed != pieces.end()) pieces.erase(echoed);
    }
    // An unchanged value keeps its level, its targets and its bytes.
    std::vector<TagValue> merged;
    std::vector<bool> used(addressed.size());
    for (const std::string& piece : pieces) {
        size_t i = 0;
        while (i < addressed.size() && (used[i] || addressed[i].value != piece)) ++i;
        if (i < addressed.size()) {
            used[i] = true;
            merged.push_back(std::move(addressed[i]));
        } else {
            merged.push_back(MakeTagValue(key, piece));
        }
    }
    for (TagValue& value : kept) merged.push_back(std::move(value));
    list = std::move(merged);
    return true;
}

bool MergeIDTags(const IDTags& tags, TagRecord& record) {
    bool changed = false;
    for (const NumberPairRow& row : NumberPairs) changed = MergeNumberPair(tags, row, record) || changed;
    for (int i = 0; i < tags.Count(); ++i) {
        const IDTag& tag = tags[i];
        if (tag.Name.Length() > 0 && tag.Name[0] == u'_') continue;
        const std::string key = IDTagNameToMatroskaKey(tag.Name);
        if (key.empty()) continue;
        changed = MergeValues(MapShowing(record, key), key, SplitAtCr(tag.Value.ToUtf8())) || changed;
    }
    return changed;
}

void EncodeTagValueMap(const TagValueMap& map, const uint8_t* prefix, uint64_t prefixSize, EBML::StreamWritable& sink) {
    EBML::StreamWritableSimple body;
    const TagValue* open = nullptr;
    for (const auto& [key, values] : map) {
        for (const TagValue& value : values) {
            if (open == nullptr || value.level != open->level || value.targets != open->targets) {
                if (open != nullptr) CloseTag(body, sink);
                EBML::StreamWritableSimple targets;
                if (value.targets) {
                    targets.Write(value.targets->data(), value.targets->size());
                } else {
                    targets.Write(prefix, prefixSize);
                    EBML::WriteUIntElement(targets, kTargetTypeValue, value.level);
                }
                EBML::WriteElement(body, kTargets, targets.Data(), targets.Size());
                open = &value;
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
    if (open != nullptr) CloseTag(body, sink);
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
    std::vector<ParsedAttachment> parsed(chain.size());
    std::vector<bool> drop(chain.size()), image(chain.size());
    for (size_t i = 0; i < chain.size(); ++i) {
        if (chain[i].id != kAttachedFile) continue;
        parsed[i] = ParseAttachedFile(chain[i]);
        image[i] = StartsWith(parsed[i].mimeType, "image/");
        drop[i] = image[i] && stems.count(UpperAscii(StripExtension(EBML::CText(parsed[i].fileName)))) != 0;
    }
    // A picture whose bytes an image attachment holds already is that
    // attachment: kept as it stands, name, MIME type and FileUID, so that
    // tags aimed at it still find it and no detection judges it anew. It
    // takes the place the host gave it, as a new picture would.
    auto holds = [&](size_t i, const IDTag& tag) {
        const ParsedAttachment& a = parsed[i];
        return a.dataSize == tag.Data.Size() &&
               (a.dataSize == 0 || std::memcmp(chain[i].data.data() + a.dataOffset, tag.Data.Data(), a.dataSize) == 0);
    };
    EBML::Chain merged;
    std::vector<bool> reused(chain.size());
    for (int t = 0; t < tags.Count(); ++t) {
        if (!StartsWithNoCase(tags[t].Name, u"_albumart_")) continue;
        size_t i = 0;
        while (i < chain.size() && (!image[i] || reused[i] || !holds(i, tags[t]))) ++i;
        if (i < chain.size()) {
            reused[i] = drop[i] = true;
            merged.push_back(chain[i]);
        } else {
            merged.push_back({kAttachedFile, EncodeAttachedFile(tags[t])});
        }
    }
    for (size_t i = 0; i < chain.size(); ++i) {
        if (!drop[i]) merged.push_back(chain[i]);
    }
    const bool same = merged.size() == chain.size() &&
                      std::equal(merged.begin(), merged.end(), chain.begin(), [](const auto& a, const auto& b) {
                          return a.id == b.id && a.data == b.data;
                      });
    if (same) return false;
    chain = std::move(merged);
    return true;
}

}  // namespace Matroska
