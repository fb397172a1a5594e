// TagID3v2: options, writing and deleting. The new tag is rendered to memory
// first; the file changes only when that succeeded, and only within bytes
// that a parsed tag proved to be its own.

#include <algorithm>
#include <set>
#include <utility>

#include "image/imageinfo.h"
#include "transport/exceptions.h"
#include "tags/changetexts.h"
#include "tags/id3v2/id3text.h"
#include "tags/id3v2/id3values.h"
#include "tags/id3v2/id3writer.h"
#include "tags/id3v2/tagid3v2.h"
#include "tags/picturenaming.h"
#include "tags/tagtext.h"

using namespace id3parser;

namespace {

constexpr char16_t kDamaged[] =
    u"The ID3v2 tag is damaged: its header claims bytes that can't be read as its own, so it was left as it is.";
constexpr char16_t kFramesDamaged[] =
    u"The ID3v2 tag is damaged: a frame in it can't be read to its end, so it was left as it is.";
constexpr char16_t kNotBuilt[] = u"The new ID3v2 tag could not be built.";
constexpr char16_t kNoRoom[] = u"There is no room for the larger ID3v2 tag; the file was left as it was.";
constexpr char16_t kNotChanged[] = u"The file could not be changed.";

std::vector<std::string> SplitAtCr(const clString& value) {
    std::vector<std::string> pieces;
    std::u16string_view rest = value.View();
    for (;;) {
        const size_t cr = rest.find(u'\r');
        pieces.push_back(clString(rest.substr(0, cr)).ToUtf8());
        if (cr == std::u16string_view::npos) return pieces;
        rest.remove_prefix(cr + 1);
    }
}

int PictureTypeOfKey(const clString& key) {
    clString typeName, description;
    SplitArtKey(key, typeName, description);
    if (typeName.Empty() || EqualsNoCase(typeName.View(), u"Undefined")) return 0;
    return PictureTypeFromName(typeName);
}

// The MIME type that the picture's bytes show; none for bytes of no known
// format, which the format reads as "image/".
std::string MimeOf(const uint8_t* data, size_t size) {
    try {
        MemoryImageSource source(data, size);
        const ImageInfo info = DetectImageType(source);
        return info.mime ? info.mime : "";
    } catch (const Qel::invalid_input&) {
        return "";
    }
}

id3frame PictureFrame(const IDTag& entry, uint32_t version) {
    clString typeName, description;
    SplitArtKey(entry.Name, typeName, description);
    const uint8_t* data = entry.Data.Data();
    const size_t size = entry.Data.Size();
    const std::string mime = MimeOf(data, size);
    const std::string text = description.ToUtf8();
    const uint8_t encoding = textEncodingFor({text}, version, 0);
    id3frame frame;
    frame.id = frameId("APIC");
    frame.data.reserve(mime.size() + 2 * text.size() + size + 8);
    frame.data.push_back(encoding);
    frame.data.insert(frame.data.end(), mime.begin(), mime.end());
    frame.data.push_back(0);
    frame.data.push_back(static_cast<uint8_t>(PictureTypeOfKey(entry.Name)));
    appendEncodedText(frame.data, text, encoding);
    frame.data.insert(frame.data.end(), data, data + size);
    return frame;
}

void ReplacePictures(id3tag& tag, const IDTags& tags, bool deleteOnly) {
    std::set<int> types;
    for (int i = 0; i < tags.Count(); ++i) {
        if (IsArtKey(tags[i].Name)) types.insert(PictureTypeOfKey(tags[i].Name));
    }
    if (types.empty()) return;
    tag.frames.remove_if([&types](const id3frame& frame) {
        if (frame.id != frameId("APIC")) return false;
        try {
            uint8_t type = 0;
            const uint8_t* image = nullptr;
            uint64_t size = 0;
            pictureFields(frame.data.data(), frame.data.size(), type, image, size);
            return types.count(type) != 0;
        } catch (const parseError&) {
            return true;   // a rewrite that touches pictures clears out broken ones
        }
    });
    if (deleteOnly) return;
    for (int i = 0; i < tags.Count(); ++i) {
        if (IsArtKey(tags[i].Name) && !tags[i].Data.Empty()) tag.frames.push_back(PictureFrame(tags[i], tag.version));
    }
}

void ReplaceTableOfContents(id3tag& tag, const IDTags& tags) {
    const IDTag* toc = tags.Find(clString(u"_cdtoc"), false);
    if (!toc) return;
    tag.frames.remove_if([](const id3frame& frame) { return frame.id == frameId("MCDI"); });
    if (toc->Data.Empty()) return;
    id3frame& frame = tag.frames.emplace_back();
    frame.id = frameId("MCDI");
    frame.data.assign(toc->Data.Data(), toc->Data.Data() + toc->Data.Size());
}

}  // namespace

void TagID3v2::SetOption(const clString& name) {
    const auto Rename = [this](const char16_t* id, const char16_t* tagName) {
        IDTag* entry = frameNames.Find(clString(id), false);
        if (!entry) entry = frameNames.Add(clString(id), clString());
        entry->Value = clString(tagName);
    };
    if (name == u"ID3v2EncodeUni") encodingChoice = 1;
    else if (name == u"ID3v2EncodeUTF8") encodingChoice = 2;
    else if (name == u"ID3v2WriteV22") versionChoice = 0;
    else if (name == u"ID3v2WriteV221") versionChoice = 1;
    else if (name == u"ID3v2WriteV24") versionChoice = 3;
    else if (name == u"WriteFullDateInYearTag") fullDateInYear = 1;
    else if (name == u"WriteStrictYearDate") strictYearDate = 1;
    else if (name == u"TPE2Orchestra") Rename(u"TPE2", u"Orchestra");
    else if (name == u"TIT1Style") Rename(u"TIT1", u"Style");
}

bool TagID3v2::isSingleValueName(const clString& name) {
    static constexpr std::u16string_view kNames[] = {
        u"album", u"album sort", u"subtitle", u"set subtitle", u"encoded by", u"label", u"encoder settings",
        u"tempo", u"source", u"initial key", u"contact", u"copyright", u"title", u"comment", u"title sort",
        u"length", u"year", u"original release year", u"release date", u"recording dates", u"description",
        u"CUESHEET", u"EACLOG"};
    for (std::u16string_view single : kNames) {
        if (EqualsNoCase(name.View(), single)) return true;
    }
    return name.Find(u"lyrics", 1, true) != 0;
}

// The size of the tag that a rewrite replaces: 0 without a tag; -1 when the
// header names bytes that can't be proven to be the tag's (it doesn't parse,
// a frame can't be read to its end, it runs past the file's end, or what
// should be padding isn't zeros), which nothing may then overwrite. With
// `keepFrom`, padding that holds something else is no refusal: it stays as
// it is behind the new frames, and `keepFrom` is where it begins in the file.
int64_t TagID3v2::provenTagSize(id3tag& tag, uint64_t* keepFrom) {
    uint64_t oldSize = tagSizeOnDisk();
    if (oldSize == 0) return 0;
    if (alignment == 2 && oldSize % 2 == 1) ++oldSize;
    bool failed = false;
    const int64_t fileSize = file.Size(&failed);
    if (failed || tagOffset + oldSize > static_cast<uint64_t>(fileSize)) return -1;
    if (!readTagFrom(tag, file, tagOffset) || tag.damage) return -1;
    const uint64_t paddingStart = tagOffset + 10 + tag.framesEnd;
    if (paddingIsZero(paddingStart, tagOffset + oldSize)) return static_cast<int64_t>(oldSize);
    if (!keepFrom || !tag.framesEndExact || HasFooter(file, tagOffset)) return -1;
    *keepFrom = paddingStart;
    return static_cast<int64_t>(oldSize);
}

// True when the bytes from `from` to `to` are zeros (or a footer at the very
// end): a header size that reaches into audio shows there.
bool TagID3v2::paddingIsZero(uint64_t from, uint64_t to) {
    uint8_t header[10];
    if (!file.Seek(static_cast<int64_t>(tagOffset)) || file.Read(header, 10) != 10) return false;
    if ((header[5] & 0x10) != 0 && to >= from + 10) {   // a footer: "3DI" and the header's own fields
        uint8_t footer[10];
        if (!file.Seek(static_cast<int64_t>(to - 10)) || file.Read(footer, 10) != 10) return false;
        if (footer[0] != '3' || footer[1] != 'D' || footer[2] != 'I' || !std::equal(footer + 3, footer + 10, header + 3)) return false;
        to -= 10;
    }
    if (!file.Seek(static_cast<int64_t>(from))) return false;
    uint8_t block[4096];
    for (uint64_t left = to > from ? to - from : 0; left > 0;) {
        const auto step = static_cast<uint32_t>(std::min<uint64_t>(left, sizeof(block)));
        if (file.Read(block, step) != step) return false;
        if (std::any_of(block, block + step, [](uint8_t b) { return b != 0; })) return false;
        left -= step;
    }
    return true;
}

bool TagID3v2::HasFooter(clFile& file, uint64_t offset) {
    uint8_t header[10];
    return !file.Seek(static_cast<int64_t>(offset)) || file.Read(header, 10) != 10 || (header[5] & 0x10) != 0;
}

bool TagID3v2::Refuse(const char16_t* reason) {
    Failure = reason;
    return false;
}

// Makes room for `delta` more bytes at the end first, so that a full disk
// or a size limit stops the write before any byte has moved. Null when the
// tail moved, else why not.
const char16_t* TagID3v2::moveTail(uint64_t from, int64_t delta) {
    if (delta == 0) return nullptr;
    bool failed = false;
    const int64_t size = file.Size(&failed);
    if (failed) return kNotChanged;
    if (delta > 0) {
        const bool room = file.SetLength(size + delta);
        if (!file.SetLength(size)) return kChangeDamaged;
        if (!room) return kNoRoom;
    }
    bool damaged = false;
    if (file.ShiftTail(static_cast<int64_t>(from), delta, &damaged)) return nullptr;
    return damaged ? kChangeDamaged : kChangeRestored;
}

// Writes the new tag over the room that moveTail made; when that fails, the
// tail goes back and the old tag's bytes with it.
const char16_t* TagID3v2::putTag(const std::vector<uint8_t>& rendered, const std::vector<uint8_t>& old) {
    const auto offset = static_cast<int64_t>(tagOffset);
    if (file.Seek(offset) && file.Write(rendered.data(), static_cast<uint32_t>(rendered.size()), clFile::kAtCurrent))
        return nullptr;
    const int64_t delta = static_cast<int64_t>(rendered.size()) - static_cast<int64_t>(old.size());
    const bool restored = file.ShiftTail(offset + static_cast<int64_t>(rendered.size()), -delta) &&
                          file.Seek(offset) &&
                          file.Write(old.data(), static_cast<uint32_t>(old.size()), clFile::kAtCurrent);
    return restored ? kChangeRestored : kChangeDamaged;
}

bool TagID3v2::Prepare(const IDTags& tags, bool deleteOnly) {
    Failure = nullptr;
    prepared_ = false;
    std::vector<uint8_t>& rendered = rendered_;
    rendered.clear();
    int64_t oldSize = 0;
    uint64_t keepFrom = 0;   // where kept padding begins; 0: nothing is kept
    try {
        id3tag tag;
        applyFrameNames(tag);
        oldSize = provenTagSize(tag, &keepFrom);
        if (oldSize < 0) return Refuse(tag.damage ? kFramesDamaged : kDamaged);
        if (oldSize == 0) tag.version = versionChoice == 3 ? 4 : 3;

        TagValues values;
        framesToValues(tag, values);
        TagValues changed;   // the old values of the names that change
        for (int i = 0; i < tags.Count(); ++i) {
            const IDTag& entry = tags[i];
            if (entry.Name.View().starts_with(u"_")) continue;
            std::string name = entry.Name.ToUtf8();
            if (equalsNoCase(name, "content group description")) name = "style";
            if (equalsNoCase(name, "ITUNNORM")) name = "COMMENT ITUNNORM";
            if (!deleteOnly && !entry.Value.Empty() && shownValue(values, name) == entry.Value) continue;
            const auto found = values.find(name);
            if (found != values.end() && changed.find(name) == changed.end()) changed.emplace(*found);
            if (deleteOnly || entry.Value.Empty()) {
                values.erase(name);
                continue;
            }
            std::vector<std::string>& list = values[name];
            list.clear();
            if (isSingleValueName(entry.Name)) list.push_back(entry.Value.ToUtf8());
            else list = SplitAtCr(entry.Value);
        }
        if (auto comments = values.find("comments"); comments != values.end()) {
            std::vector<std::string> moved = std::move(comments->second);
            values.erase(comments);
            if (auto found = values.find("comment"); found != values.end() && !changed.count("comment")) changed.emplace(*found);
            std::vector<std::string>& comment = values["comment"];
            comment.insert(comment.end(), moved.begin(), moved.end());
        }

        WriteSettings settings;
        settings.encoding = encodingChoice == 1 ? 1 : encodingChoice == 2 ? 3 : 0;
        settings.looseYear = fullDateInYear;
        valuesToFrames(tag, std::move(values), settings, &changed);
        ReplacePictures(tag, tags, deleteOnly);
        ReplaceTableOfContents(tag, tags);

        streamOutBuffer buffer;
        const uint64_t kept = keepFrom ? tagOffset + static_cast<uint64_t>(oldSize) - keepFrom : 0;
        if (!tag.frames.empty() || kept != 0) {
            orderPictures(tag);
            renderTag(tag, buffer, static_cast<uint64_t>(oldSize), maxPadding, alignment, kept);
        }
        rendered.swap(buffer.bytes);
    } catch (...) {
        return Refuse(kNotBuilt);   // nothing has reached the file
    }
    // The bytes that the new ones replace: the old tag, or its part in front
    // of the kept padding. Put back when the new ones can't be written.
    const uint64_t replaced = keepFrom ? keepFrom - tagOffset : static_cast<uint64_t>(oldSize);
    replaced_ = replaced;
    std::vector<uint8_t>& old = old_;
    old.clear();
    if (!rendered.empty() && replaced > 0) {
        old.resize(static_cast<size_t>(replaced));
        if (!file.Seek(static_cast<int64_t>(tagOffset)) ||
            file.Read(old.data(), static_cast<uint32_t>(old.size())) != old.size())
            return Refuse(kNotChanged);
    }
    prepared_ = true;
    return true;
}

bool TagID3v2::Commit() {
    if (!std::exchange(prepared_, false)) return Refuse(kNotBuilt);
    const std::vector<uint8_t>& rendered = rendered_;
    const std::vector<uint8_t>& old = old_;
    const uint64_t replaced = replaced_;
    const int64_t delta = static_cast<int64_t>(rendered.size()) - static_cast<int64_t>(replaced);
    if (const char16_t* reason = moveTail(tagOffset + replaced, delta)) return Refuse(reason);
    if (rendered.empty()) return true;
    const char16_t* reason = putTag(rendered, old);
    return reason == nullptr || Refuse(reason);
}

void TagID3v2::Delete() {
    Failure = nullptr;
    id3tag tag;
    const int64_t oldSize = provenTagSize(tag);
    if (oldSize < 0) Refuse(kDamaged);
    if (oldSize <= 0) return;
    if (const char16_t* reason = moveTail(tagOffset + static_cast<uint64_t>(oldSize), -oldSize)) Refuse(reason);
}

void TagID3v2::DeleteTag(const clString& name) {
    IDTags one;
    one.Add(name, clString());
    Write(one, true);
}
