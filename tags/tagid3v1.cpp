#include "tags/tagid3v1.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "tags/filetail.h"
#include "tags/id3v1genres.h"
#include "tags/tagtext.h"

namespace {

// Field offsets inside the 128-byte tag.
constexpr uint32_t kTitleAt = 3;
constexpr uint32_t kArtistAt = 33;
constexpr uint32_t kAlbumAt = 63;
constexpr uint32_t kYearAt = 93;
constexpr uint32_t kCommentAt = 97;
constexpr uint32_t kTrackMarkAt = 125;
constexpr uint32_t kTrackAt = 126;
constexpr uint32_t kGenreAt = 127;
constexpr uint32_t kTextField = 30;
constexpr uint32_t kYearField = 4;
constexpr uint32_t kCommentWithTrack = 28;
constexpr uint8_t kNoGenre = 255;
constexpr int kLastReadableGenre = 126;

// One value per field in this format: several values travel as "; ".
constexpr std::u16string_view kValueSeparator = u"; ";
constexpr std::u16string_view kCarriageReturn = u"\r";

clString TrimBlanks(const clString& text) {
    std::u16string_view view = text.View();
    while (!view.empty() && view.back() == u' ') view.remove_suffix(1);
    while (!view.empty() && view.front() == u' ') view.remove_prefix(1);
    return clString(view);
}

// Bytes up to the first NUL or the field's end, from ANSI, trimmed; an empty
// field adds nothing.
void AddField(IDTags& tags, const char16_t* name, const uint8_t* bytes, uint32_t length) {
    const void* nul = std::memchr(bytes, 0, length);
    size_t used = nul ? static_cast<size_t>(static_cast<const uint8_t*>(nul) - bytes) : length;
    clString value = clString::FromAnsi(std::string_view(reinterpret_cast<const char*>(bytes), used));
    if (IsMultiValueName(name)) value = ReplaceAll(value, kValueSeparator, kCarriageReturn);
    value = TrimBlanks(value);
    if (value.Empty()) return;
    tags.Add(clString(name), value);
}

// Copies a non-empty value into its field, cut at `limit` bytes. True when it did.
bool PutField(uint8_t* tag, uint32_t at, uint32_t limit, const IDTag* entry) {
    if (!entry || entry->Value.Empty()) return false;
    clString value = entry->Value;
    if (IsMultiValueName(entry->Name.View())) value = ReplaceAll(value, kCarriageReturn, kValueSeparator);
    std::string ansi = value.ToAnsi();
    size_t end = ansi.find('\0');
    size_t count = std::min<size_t>(end == std::string::npos ? ansi.size() : end, limit);
    std::memcpy(tag + at, ansi.data(), count);
    return true;
}

clString FirstValue(const clString& value) {
    std::u16string_view view = value.View();
    return clString(view.substr(0, view.find(u'\r')));
}

}  // namespace

void TagID3v1::SetOption(const clString& name) {
    if (name.View() == u"ID3v1Write10") WriteVersion10 = true;
}

bool TagID3v1::Exists() {
    if (!file.IsOpen()) return false;
    FileTail tail;
    return ReadFileTail(file, tail) && tail.HasId3v1();
}

bool TagID3v1::Read(IDTags& tags, bool wantVersion) {
    tags.Clear();
    if (!file.IsOpen()) return false;
    FileTail tail;
    if (!ReadFileTail(file, tail) || !tail.Complete()) return false;
    bool version11 = false;
    if (tail.HasId3v1()) {
        const uint8_t* tag = tail.Id3v1();
        AddField(tags, u"Title", tag + kTitleAt, kTextField);
        AddField(tags, u"Artist", tag + kArtistAt, kTextField);
        AddField(tags, u"Album", tag + kAlbumAt, kTextField);
        AddField(tags, u"Year", tag + kYearAt, kYearField);
        AddField(tags, u"Comment", tag + kCommentAt, kTextField);
        // The table's rows and a decimal number pass the field rule unchanged.
        if (tag[kGenreAt] <= kLastReadableGenre) tags.Add(clString(u"Genre"), clString(Id3v1Genre(tag[kGenreAt])));
        if (tag[kTrackMarkAt] == 0 && tag[kTrackAt] != 0) {
            tags.Add(clString(u"Track"), clString::FromInt(tag[kTrackAt]));
            version11 = true;
        }
    }
    if (wantVersion && tags.Count() > 0) {
        tags.Add(clString(u"TagVersion"), clString(version11 ? u"ID3v1.1" : u"ID3v1.0"));
    }
    return true;
}

bool TagID3v1::Prepare(const IDTags& tags, bool merge) {
    change_ = Change::kNone;
    if (!file.IsOpen()) return false;
    IDTags result;
    Read(result, false);
    FileTail old;
    const bool present = ReadFileTail(file, old) && old.HasId3v1();
    const bool hadEntries = result.Count() > 0;
    if (!merge) result.Clear();
    for (int i = 0; i < tags.Count(); ++i) {
        IDTag* existing = result.Find(tags[i].Name, false);
        if (existing) {
            *existing = tags[i];
        } else {
            result.AddCopy(tags[i]);
        }
    }

    uint8_t* tag = pending_;
    std::memset(tag, 0, kId3v1Bytes);
    std::memcpy(tag, "TAG", 3);
    tag[kGenreAt] = kNoGenre;
    bool content = false;

    int64_t track = 0;
    if (!WriteVersion10) {
        if (const IDTag* entry = result.Find(clString(u"TRACK"), false)) track = entry->Value.ToInt();
    }
    content |= PutField(tag, kTitleAt, kTextField, result.Find(clString(u"TITLE"), false));
    content |= PutField(tag, kArtistAt, kTextField, result.Find(clString(u"ARTIST"), false));
    content |= PutField(tag, kAlbumAt, kTextField, result.Find(clString(u"ALBUM"), false));
    content |= PutField(tag, kYearAt, kYearField, result.Find(clString(u"YEAR"), false));
    content |= PutField(tag, kCommentAt, track != 0 ? kCommentWithTrack : kTextField,
                        result.Find(clString(u"COMMENT"), false));
    if (track != 0) {
        tag[kTrackMarkAt] = 0;
        tag[kTrackAt] = static_cast<uint8_t>(track & 0xFF);
        content = true;
    }
    if (const IDTag* genre = result.Find(clString(u"GENRE"), false)) {
        int row = Id3v1GenreRow(FirstValue(genre->Value).View());
        if (row >= 0 && row != kId3v1NoGenreRow) {
            tag[kGenreAt] = static_cast<uint8_t>(row);
            content = true;
        }
    }
    // The new tag goes over the old one in place, also over one whose fields
    // are all blank: behind it, it would hide an APE tag in front of it. With
    // nothing to write, a tag that held entries goes and a blank one stays.
    if (present && content && std::memcmp(old.Id3v1(), tag, kId3v1Bytes) != 0) change_ = Change::kOverwrite;
    if (present && !content && hadEntries) change_ = Change::kCut;
    if (!present && content) change_ = Change::kAppend;
    return true;
}

// The tag's place is taken from the file's size now: an APE tag rewritten in
// front of it moves it.
bool TagID3v1::Commit() {
    const Change change = std::exchange(change_, Change::kNone);
    if (change == Change::kNone) return true;
    bool failed = false;
    int64_t size = file.Size(&failed);
    if (failed) return false;
    int64_t at = size - static_cast<int64_t>(kId3v1Bytes);
    if (change == Change::kOverwrite) return file.Seek(at) && file.Write(pending_, kId3v1Bytes);
    if (change == Change::kCut) return file.SetLength(at);
    return file.Write(pending_, kId3v1Bytes, clFile::kAtEnd);
}

bool TagID3v1::PrepareDelete(const clStringList* names) {
    change_ = Change::kNone;
    if (!names) {
        if (Exists()) change_ = Change::kCut;
        return true;
    }
    IDTags tags;
    if (!Read(tags, false)) return true;
    bool removed = false;
    for (int i = 0; i < names->Count(); ++i) removed |= tags.Remove((*names)[i]);
    return !removed || Prepare(tags, false);
}

void TagID3v1::Delete() {
    if (PrepareDelete(nullptr)) Commit();
}

void TagID3v1::DeleteTag(const clString& name) {
    clStringList names;
    names.AddCopy(name);
    if (PrepareDelete(&names)) Commit();
}
