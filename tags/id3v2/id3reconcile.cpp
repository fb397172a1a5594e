// valuesToFrames: the frames of every name whose values the write doesn't
// change stay byte for byte; frames are built for the names that change, and
// what no frame type can hold goes to a user frame rather than being lost.

#include <algorithm>
#include <map>
#include <set>

#include "tags/id3v2/id3text.h"
#include "tags/id3v2/id3values.h"
#include "tags/id3v2/id3writer.h"

namespace id3parser {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

std::string Join(const std::vector<std::string>& list, const std::string& separator) {
    std::string joined;
    for (size_t i = 0; i < list.size(); ++i) joined += (i ? separator : "") + list[i];
    return joined;
}

// The writers of one valuesToFrames call.
class FrameBuilder {
public:
    FrameBuilder(id3tag& tag, TagValues& work, uint8_t encoding) : tag_(tag), work_(work), encoding_(encoding) {}

    void BuildAll(bool skipRating, bool looseYear);

private:
    using Entry = TagValues::iterator;

    id3frame& NewFrame(uint32_t id) {
        id3frame& frame = tag_.frames.emplace_back();
        frame.id = id;
        return frame;
    }
    Entry Find(uint32_t id, const char* defaultName) {
        const auto override = tag_.overrides.find(id);
        return work_.find(override != tag_.overrides.end() ? override->second : std::string(defaultName));
    }
    Entry Find(const char* name) { return work_.find(name); }
    bool Found(Entry entry) const { return entry != work_.end(); }

    void Single(const char (&id)[5], const char* name, bool url = false);
    void Many(const char (&id)[5], const char* name);
    void FirstValue(const char (&id)[5], const char* name);
    void Lyrics();
    void Genre();
    void Date(const char (&id)[5], const char* name);
    void OriginalYear();
    void Years(bool looseYear);
    void Rating();
    void AddStrings(id3frame& frame, const std::vector<std::string>& list);
    uint8_t Encoding(const std::vector<std::string>& texts) const {
        return textEncodingFor(texts, tag_.version, encoding_);
    }

    id3tag& tag_;
    TagValues& work_;
    uint8_t encoding_;
};

void FrameBuilder::AddStrings(id3frame& frame, const std::vector<std::string>& list) {
    setFrameText(frame, list.front(), Encoding(list));
    for (size_t i = 1; i < list.size(); ++i) appendFrameText(frame, list[i]);
}

void FrameBuilder::Single(const char (&id)[5], const char* name, bool url) {
    const Entry entry = Find(frameId(id), name);
    if (!Found(entry) || entry->second.size() != 1) return;
    id3frame& frame = NewFrame(frameId(id));
    if (url) {
        const std::string bytes = utf8ToLatin1(entry->second.front());
        frame.data.assign(bytes.begin(), bytes.end());
    } else {
        setFrameText(frame, entry->second.front(), Encoding(entry->second));
    }
    work_.erase(entry);
}

void FrameBuilder::Many(const char (&id)[5], const char* name) {
    const Entry entry = Find(frameId(id), name);
    if (!Found(entry) || entry->second.empty()) return;
    id3frame& frame = NewFrame(frameId(id));
    if (tag_.version < 4) setFrameText(frame, Join(entry->second, "/"), Encoding(entry->second));
    else AddStrings(frame, entry->second);
    work_.erase(entry);
}

void FrameBuilder::FirstValue(const char (&id)[5], const char* name) {
    const Entry entry = Find(name);
    if (!Found(entry) || entry->second.empty()) return;
    setFrameText(NewFrame(frameId(id)), entry->second.front(), Encoding({entry->second.front()}));
    work_.erase(entry);   // further values are lost: the frame holds one
}

void FrameBuilder::Lyrics() {
    const Entry entry = Find("Lyrics");
    if (!Found(entry) || entry->second.size() != 1) return;
    id3frame& frame = NewFrame(frameId("USLT"));
    setFrameText(frame, "", Encoding(entry->second));
    appendFrameText(frame, entry->second.front());
    work_.erase(entry);
}

void FrameBuilder::Genre() {
    const Entry entry = Find("Genre");
    if (!Found(entry) || entry->second.empty()) return;
    std::vector<std::string> genres;
    for (const std::string& genre : entry->second) genres.push_back(genre.starts_with("(") ? "(" + genre : genre);
    id3frame& frame = NewFrame(frameId("TCON"));
    if (tag_.version < 4) setFrameText(frame, Join(genres, ";"), Encoding(genres));
    else AddStrings(frame, genres);
    work_.erase(entry);
}

void FrameBuilder::Date(const char (&id)[5], const char* name) {
    const Entry entry = Find(name);
    if (!Found(entry) || entry->second.size() != 1) return;
    const std::string& value = entry->second.front();
    const size_t slash = value.find('/');
    const bool valid = isValidDateShape(value) || (slash != std::string::npos && isValidDateShape(value.substr(0, slash)) &&
                                                   isValidDateShape(value.substr(slash + 1)));
    if (!valid) return;
    setFrameAnsi(NewFrame(frameId(id)), value);
    work_.erase(entry);
}

void FrameBuilder::OriginalYear() {
    const Entry entry = Find("Original release year");
    if (!Found(entry) || entry->second.size() != 1 || !matchesShape(entry->second.front(), "####")) return;
    setFrameAnsi(NewFrame(frameId("TORY")), entry->second.front());
    work_.erase(entry);
}

// A date in a tag below 2.4, by its shape: TYER holds only the year, TDAT
// day and month, TIME hours and minutes. Another shape stays in `work` and
// goes to a user frame: never a text that isn't a year in TYER.
void FrameBuilder::Years(bool looseYear) {
    const Entry entry = Find("Year");
    if (!Found(entry) || entry->second.size() != 1) return;
    const std::string value = entry->second.front();
    if (looseYear) {
        setFrameAnsi(NewFrame(frameId("TYER")), value);
        work_.erase(entry);
        return;
    }
    const bool month = matchesShape(value, "####-##");
    const bool day = matchesShape(value, "####-##-##") || matchesShape(value, "#### ## ##");
    const bool time = matchesShape(value, "####-##-##T##:##");
    if (!matchesShape(value, "####") && !month && !day && !time) return;
    work_.erase(entry);
    setFrameAnsi(NewFrame(frameId("TYER")), value.substr(0, 4));
    if (month) setFrameAnsi(NewFrame(frameId("TDAT")), "00" + value.substr(5, 2));
    if (day || time) setFrameAnsi(NewFrame(frameId("TDAT")), value.substr(8, 2) + value.substr(5, 2));
    if (time) setFrameAnsi(NewFrame(frameId("TIME")), value.substr(11, 2) + value.substr(14, 2));
}

void FrameBuilder::Rating() {
    const Entry entry = Find("Rating");
    if (!Found(entry) || entry->second.size() != 1) return;
    const std::string& value = entry->second.front();
    if (value.empty() || value.size() > 2 || !std::all_of(value.begin(), value.end(), IsDigit)) return;
    const int n = std::stoi(value);
    if (n < 1 || n > 10) return;
    static constexpr char kPlayer[] = "Windows Media Player 9 Series";
    id3frame& frame = NewFrame(frameId("POPM"));
    frame.data.assign(35, 0);
    std::copy(kPlayer, kPlayer + sizeof(kPlayer) - 1, frame.data.begin());
    frame.data[30] = ratingSteps[n];
    work_.erase(entry);
}

void FrameBuilder::BuildAll(bool skipRating, bool looseYear) {
    Many("TIT1", "Content Group");
    Single("TIT2", "Title");
    Single("TIT3", "Subtitle");
    Single("TSST", "Set subtitle");
    Single("TALB", "Album");
    Single("TSRC", "ISRC");
    Single("TENC", "Encoded by");
    Single("TCOP", "Copyright");
    Many("TPUB", "Label");
    Single("TOWN", "File owner/licensee");
    Single("TRSN", "Internet radio station name");
    Single("TRSO", "Internet radio station owner");
    Single("TSSE", "Encoder Settings");
    Single("TBPM", "BPM");
    Single("TMED", "Source");
    Single("TKEY", "Initial key");
    Single("TSOT", "Title Sort");
    Many("TSOP", "Artist Sort");
    Single("TSOA", "Album Sort");
    Many("TSO2", "Album Artist Sort");
    Many("TSOC", "ComposerSort");
    Single("GRP1", "iTunes Grouping");
    Single("TLEN", "Length");
    Many("TLAN", "Language(s)");
    Lyrics();
    Genre();
    Single("WCOM", "Commercial information", true);
    Single("WCOP", "Copyright/Legal infromation", true);
    Single("WOAF", "Official audio file webpage", true);
    Single("WOAR", "Official artist/performer webpage", true);
    Single("WOAS", "Official audio source webpage", true);
    Single("WORS", "Official internet radio station homepage", true);
    Single("WPAY", "Payment", true);
    Single("WPUB", "Official publisher webpage", true);
    Single("TCMP", "Compilation");
    if (tag_.version < 4) {
        Years(looseYear);
        OriginalYear();
        Single("TRDA", "Recording dates");
    } else {
        Date("TDRC", "Year");
        Date("TDOR", "Original release year");
        Many("TIPL", "Involved People");
        Many("TMCL", "Musician Credits");
    }
    Date("TDRL", "Release date");
    FirstValue("TRCK", "Track");
    FirstValue("TPOS", "Disc");
    Many("TOPE", "Original artist(s)/performer(s)");
    Many("TOAL", "Original album/movie/show title");
    Many("TPE1", "Artist");
    Many("TPE2", "Album Artist");
    Many("TPE3", "Conductor");
    Many("TPE4", "Interpreted, remixed, or otherwise modified by");
    Many("TCOM", "Composer");
    Many("TEXT", "Lyricist/Text writer");
    if (!skipRating) Rating();
}

// The names that a frame gives on reading; none when it can't be read.
std::vector<std::string> NamesOf(const id3frame& frame, const FrameContext& context) {
    TagValues temp;
    try {
        frameToValues(frame, context, temp);
    } catch (const parseError&) {
        return {};
    }
    std::vector<std::string> names;
    for (const auto& entry : temp) names.push_back(entry.first);
    return names;
}

// What the step from 2.2 to 2.3 can keep: pictures, comments and lyrics.
bool SurvivesVersionStep(id3frame& frame) {
    if (frame.id == frameId("APIC")) return true;
    if (frame.id != frameId("COMM") && frame.id != frameId("USLT")) return false;
    try {
        upgradeFrameEncoding(frame);
        return true;
    } catch (const parseError&) {
        return false;
    }
}

// Text and URL frames of which a tag holds one: an old one that stayed
// (because it couldn't be read) gives way to a new one.
bool IsSingleInstance(uint32_t id) {
    const char first = static_cast<char>(id >> 24);
    return (first == 'T' && id != frameId("TXXX")) || (first == 'W' && id != frameId("WXXX"));
}

void DropReplacedFrames(FrameList& old, const FrameList& built) {
    std::set<uint32_t> ids;
    for (const id3frame& frame : built) {
        if (IsSingleInstance(frame.id)) ids.insert(frame.id);
    }
    old.remove_if([&ids](const id3frame& frame) { return ids.count(frame.id) != 0; });
}

}  // namespace

bool isValidDateShape(const std::string& text) {
    for (const char* shape : {"####", "####-##", "####-##-##", "####-##-##T##", "####-##-##T##:##",
                              "####-##-##T##:##:##"}) {
        if (matchesShape(text, shape)) return true;
    }
    return false;
}

void retainUnchangedFrames(const id3tag& tag, uint32_t readVersion, FrameList& old, const TagValues& oldValues,
                           TagValues& work, bool onlyChanged) {
    const FrameContext context{tag.overrides, readVersion, false};
    // Names by number. A name stays when its values don't change and every
    // frame that gave them can stay.
    std::map<std::string, uint32_t, NoCaseLess> ids;
    std::vector<bool> stays;
    const auto IdOf = [&](const std::string& name) {
        const auto [entry, added] = ids.emplace(name, static_cast<uint32_t>(stays.size()));
        if (added) {
            const auto before = oldValues.find(name);
            const auto wanted = work.find(name);
            if (before == oldValues.end()) stays.push_back(onlyChanged && wanted != work.end());
            else stays.push_back(wanted != work.end() && wanted->second == before->second);
        }
        return entry->second;
    };
    std::vector<uint32_t> nameIds;        // the names of all frames, frame after frame
    std::vector<uint32_t> firstName{0};   // where each frame's names begin in `nameIds`
    std::vector<bool> movable;
    for (id3frame& frame : old) {
        movable.push_back(readVersion == tag.version || (!frame.opaque && SurvivesVersionStep(frame)));
        for (const std::string& name : NamesOf(frame, context)) {
            nameIds.push_back(IdOf(name));
            if (!movable.back()) stays[nameIds.back()] = false;
        }
        firstName.push_back(static_cast<uint32_t>(nameIds.size()));
    }
    size_t index = 0;
    for (auto it = old.begin(); it != old.end(); ++index) {
        const auto next = std::next(it);
        const auto first = nameIds.begin() + static_cast<long>(firstName[index]);
        const auto last = nameIds.begin() + static_cast<long>(firstName[index + 1]);
        if (!movable[index] || !std::all_of(first, last, [&stays](uint32_t id) { return stays[id]; })) old.erase(it);
        it = next;
    }
    for (const auto& [name, id] : ids) {
        if (stays[id]) work.erase(name);
    }
}

void writeLeftover(id3tag& tag, const std::string& name, const std::vector<std::string>& list, uint8_t encoding) {
    const auto NewFrame = [&tag](uint32_t id) -> id3frame& {
        id3frame& frame = tag.frames.emplace_back();
        frame.id = id;
        return frame;
    };
    const auto RestAfter = [&name](size_t length) {
        size_t at = length;
        while (at < name.size() && name[at] == ' ') ++at;
        return name.substr(at);
    };
    static constexpr char kUrl[] = "User defined URL link";
    if (startsWithNoCase(name, kUrl)) {
        const std::string rest = RestAfter(sizeof(kUrl) - 1);
        for (const std::string& value : list) {
            id3frame& frame = NewFrame(frameId("WXXX"));
            setFrameText(frame, rest, textEncodingFor({rest}, tag.version, encoding));
            const std::string url = utf8ToLatin1(value);
            frame.data.insert(frame.data.end(), url.begin(), url.end());
        }
        return;
    }
    if (equalsNoCase(name, "Comment") || (startsWithNoCase(name, "Comment ") && name.size() > 8)) {
        std::string rest = RestAfter(7);
        if (equalsNoCase(rest, "iTunNORM")) rest = "iTunNORM";
        const bool hexOnly = std::all_of(list.begin(), list.end(), [](const std::string& value) {
            return value.find_first_not_of(" 0123456789abcdefABCDEF") == std::string::npos;
        });
        for (const std::string& value : list) {
            const uint8_t commentEncoding =
                rest.starts_with("iTun") && hexOnly ? 0 : textEncodingFor({rest, value}, tag.version, encoding);
            id3frame& frame = NewFrame(frameId("COMM"));
            setFrameText(frame, rest, commentEncoding);
            appendFrameText(frame, value);
        }
        return;
    }
    const auto UserFrame = [&](const std::vector<std::string>& values) {
        std::vector<std::string> texts = values;
        texts.push_back(name);
        id3frame& frame = NewFrame(frameId("TXXX"));
        setFrameText(frame, name, textEncodingFor(texts, tag.version, encoding));
        for (const std::string& value : values) appendFrameText(frame, value);
    };
    if (isReplayGainName(name)) {
        UserFrame({list.front()});
    } else if (tag.version >= 4) {
        UserFrame(list);
    } else if (isSlashSplitUserName(name)) {
        UserFrame({Join(list, "/")});
    } else {
        for (const std::string& value : list) UserFrame({value});
    }
}

void valuesToFrames(id3tag& tag, TagValues values, const WriteSettings& settings, const TagValues* changedValues) {
    const uint32_t readVersion = tag.version;
    TagValues ownOldValues;
    if (!changedValues) framesToValues(tag, ownOldValues);
    if (tag.version != 3 && tag.version != 4) tag.version = 3;   // 2.2 is read, never written
    uint8_t encoding = settings.encoding;
    if (tag.version < 4 && encoding > 1) encoding = 1;   // no UTF-8 before 2.4
    if (tag.version >= 4 && encoding == 2) encoding = 1;

    TagValues work = std::move(values);
    dedupeYear(work);
    FrameList old;
    old.splice(old.end(), tag.frames);
    retainUnchangedFrames(tag, readVersion, old, changedValues ? *changedValues : ownOldValues, work,
                          changedValues != nullptr);
    FrameBuilder(tag, work, encoding).BuildAll(settings.skipRating != 0, settings.looseYear != 0);
    for (const auto& [name, list] : work) {
        if (!list.empty()) writeLeftover(tag, name, list, encoding);
    }
    DropReplacedFrames(old, tag.frames);
    tag.frames.splice(tag.frames.end(), old);
}

}  // namespace id3parser
