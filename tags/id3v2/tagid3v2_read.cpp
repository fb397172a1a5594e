// TagID3v2: finding the tag and reading it into the tag collection.

#include <algorithm>

#include "tags/id3v2/id3parser.h"
#include "tags/id3v2/id3text.h"
#include "tags/id3v2/id3values.h"
#include "tags/id3v2/slashartists.h"
#include "tags/id3v2/tagid3v2.h"
#include "tags/picturenaming.h"

using namespace id3parser;

namespace {

constexpr uint64_t kCacheSize = 16384;
constexpr uint32_t kScratchSize = 1024;

// The file as a stream whose position 0 is where the tag begins.
class myStreamIn : public streamIn {
public:
    explicit myStreamIn(clFile& file) : file_(file), base_(static_cast<uint64_t>(std::max<int64_t>(file.Tell(), 0))) {}

    uint64_t read(uint8_t* buffer, uint64_t length) override {
        uint64_t done = 0;
        while (done < length) {
            const auto step = static_cast<uint32_t>(std::min<uint64_t>(length - done, 1u << 30));
            const uint32_t got = file_.Read(buffer + done, step);
            done += got;
            if (got < step) break;
        }
        return done;
    }
    uint64_t skip(uint64_t length) override {
        uint8_t scratch[kScratchSize];
        uint64_t done = 0;
        while (done < length) {
            const auto step = static_cast<uint32_t>(std::min<uint64_t>(length - done, kScratchSize));
            const uint32_t got = file_.Read(scratch, step);
            done += got;
            if (got < step) break;
        }
        return done;
    }
    uint64_t tell() override { return static_cast<uint64_t>(file_.Tell()) - base_; }
    void seek(uint64_t position) override {
        if (file_.IsOpen()) file_.Seek(static_cast<int64_t>(base_ + position));
    }

private:
    clFile& file_;
    uint64_t base_;
};

clString FromUtf8(const std::string& text) { return clString::FromUtf8(text); }

clString JoinValues(const std::vector<std::string>& list) {
    clString joined;
    for (size_t i = 0; i < list.size(); ++i) {
        if (i != 0) joined.Append(u'\r');
        joined.Append(FromUtf8(list[i]));
    }
    return joined;
}

// An art key for one picture frame; false when the frame can't be read.
bool AddPicture(IDTags& tags, const id3frame& frame, int& counter) {
    try {
        uint8_t type = 0;
        const uint8_t* image = nullptr;
        uint64_t imageSize = 0;
        pictureFields(frame.data.data(), frame.data.size(), type, image, imageSize);
        const auto mimeEnd = std::find(frame.data.begin() + 1, frame.data.end(), 0);
        const auto descriptionAt = static_cast<uint64_t>(mimeEnd - frame.data.begin()) + 2;
        if (descriptionAt >= frame.data.size()) return false;
        std::string description;
        decodeText(description, frame.data[0], frame.data.data() + descriptionAt,
                   frame.data.size() - descriptionAt, false);
        clString typePart = PictureTypeKeyPart(type);
        if (typePart.Empty()) typePart = clString(u"_Undefined");
        clString key(kArtKeyPrefix);
        key.Append(clString::FromInt(++counter));
        key.Append(typePart);
        if (!description.empty()) {
            key.Append(kSubdescMarker);
            key.Append(FromUtf8(description));
        }
        tags.AddBinary(key, image, static_cast<uint32_t>(imageSize));
        return true;
    } catch (const parseError&) {
        return false;
    }
}

clString WithoutBlanks(std::u16string_view text) {
    clString out;
    for (char16_t c : text) {
        if (c != u' ') out.Append(c);
    }
    return out;
}

}  // namespace

uint64_t TagID3v2::tagSizeOnDisk() {
    if (file.IsOpen()) file.Seek(static_cast<int64_t>(tagOffset));
    uint8_t header[10];
    if (file.Read(header, 10) != 10) return 0;
    if (header[0] != 'I' || header[1] != 'D' || header[2] != '3' || (header[5] & 0x0F) != 0) return 0;
    uint64_t size = 0;
    for (int i = 6; i < 10; ++i) {
        if (header[i] & 0x80) return 0;
        size = (size << 7) | header[i];
    }
    return size + 10 + ((header[5] & 0x10) ? 10 : 0);
}

bool TagID3v2::readTagFrom(id3tag& tag, clFile& source, uint64_t position) {
    if (!source.IsOpen()) return false;
    try {
        source.Seek(static_cast<int64_t>(position));
        myStreamIn fileStream(source);
        streamInCache cache(fileStream, kCacheSize);
        parseCallback callback;
        parseTag(tag, cache, callback);
        return true;
    } catch (...) {
        tag.frames.clear();
        tag.version = 0;
        return false;
    }
}

void TagID3v2::applyFrameNames(id3tag& tag) const {
    for (int i = 0; i < frameNames.Count(); ++i) {
        const std::string name = frameNames[i].Name.ToAnsi();
        uint32_t id = 0;
        for (size_t k = 0; k < 4; ++k) {
            const uint8_t c = k < name.size() ? static_cast<uint8_t>(name[k]) : 0;
            id = (id << 8) | c;
        }
        tag.overrides[id] = frameNames[i].Value.ToAnsi();
    }
}

bool TagID3v2::Read(IDTags& tags, bool wantVersion) {
    tags.Clear();
    id3tag tag;
    applyFrameNames(tag);
    if (!readTagFrom(tag, file, tagOffset)) return true;   // no readable tag is no failure
    TagValues values;
    framesToValues(tag, values);
    if (wantVersion && tag.version >= 2 && tag.version <= 4) {
        tags.Add(clString(u"TagVersion"), clString::Format(u"ID3v2.%u", tag.version));
    }
    valuesToEntries(values, tags);
    int counter = 0;
    for (const id3frame& frame : tag.frames) {
        if (frame.id == frameId("APIC")) AddPicture(tags, frame, counter);
    }
    for (const id3frame& frame : tag.frames) {
        if (frame.id != frameId("MCDI")) continue;
        tags.AddBinary(clString(u"_cdtoc"), frame.data.data(), static_cast<uint32_t>(frame.data.size()));
        break;
    }
    // A tag that holds nothing to show has no version to show either.
    if (wantVersion && tags.Count() == 1) tags.Clear();
    return true;
}

void TagID3v2::valuesToEntries(const TagValues& values, IDTags& tags) {
    for (const auto& entry : values) {
        if (entry.first.empty() || entry.first[0] != '_') tags.Add(FromUtf8(entry.first), shownValue(values, entry.first));
    }
}

clString TagID3v2::shownValue(const TagValues& values, const std::string& name) {
    const auto found = values.find(name);
    if (found == values.end()) return clString();
    clString value = JoinValues(found->second);
    for (std::string_view repaired : {"aRtist", "aRtist sort", "aLbum artist", "aLbum artist sort"}) {
        if (equalsNoCase(name, repaired)) rejoinSlashName(value);
    }
    return value;
}

void TagID3v2::rejoinSlashName(clString& value) {
    const clString compact = WithoutBlanks(value.View());
    for (const char16_t* const* row = slashArtistNames; **row != 0; ++row) {
        clString name = WithoutBlanks(*row);
        std::u16string units(name.View());
        std::replace(units.begin(), units.end(), u'/', u'\r');
        if (!clString::EqualsNoCase(compact.Text(), units.c_str())) continue;
        std::u16string joined(value.View());
        std::replace(joined.begin(), joined.end(), u'\r', u'/');
        value = clString(std::u16string_view(joined));
    }
}
