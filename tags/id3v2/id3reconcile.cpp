// valuesToFrames: old frames that still say what is wanted stay byte for
// byte; frames are built for the rest, and what no frame type can hold goes
// to a user frame rather than being lost.

#include <algorithm>
#include <functional>

#include "tags/id3v2/id3text.h"
#include "tags/id3v2/id3values.h"
#include "tags/id3v2/id3writer.h"

namespace id3parser {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool HasReplayGainName(const TagValues& values) {
    return std::any_of(values.begin(), values.end(), [](const auto& entry) { return isReplayGainName(entry.first); });
}

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

    id3tag& tag_;
    TagValues& work_;
    uint8_t encoding_;
};

void FrameBuilder::AddStrings(id3frame& frame, const std::vector<std::string>& list) {
    setFrameText(frame, list.front(), encoding_);
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
        setFrameText(frame, entry->second.front(), encoding_);
    }
    work_.erase(entry);
}

void FrameBuilder::Many(const char (&id)[5], const char* name) {
    const Entry entry = Find(frameId(id), name);
    if (!Found(entry) || entry->second.empty()) return;
    id3frame& frame = NewFrame(frameId(id));
    if (tag_.version < 4) setFrameText(frame, Join(entry->second, "/"), encoding_);
    else AddStrings(frame, entry->second);
    work_.erase(entry);
}

void FrameBuilder::FirstValue(const char (&id)[5], const char* name) {
    const Entry entry = Find(name);
    if (!Found(entry) || entry->second.empty()) return;
    setFrameAnsi(NewFrame(frameId(id)), entry->second.front());
    work_.erase(entry);   // further values are lost: the frame holds one
}

void FrameBuilder::Lyrics() {
    const Entry entry = Find("Lyrics");
    if (!Found(entry) || entry->second.size() != 1) return;
    id3frame& frame = NewFrame(frameId("USLT"));
    setFrameText(frame, "", encoding_);
    appendFrameText(frame, entry->second.front());
    work_.erase(entry);
}

void FrameBuilder::Genre() {
    const Entry entry = Find("Genre");
    if (!Found(entry) || entry->second.empty()) return;
    std::vector<std::string> genres;
    for (const std::string& genre : entry->second) genres.push_back(genre.starts_with("(") ? "(" + genre : genre);
    id3frame& frame = NewFrame(frameId("TCON"));
    if (tag_.version < 4) setFrameText(frame, Join(genres, ";"), encoding_);
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

void FrameBuilder::Years(bool looseYear) {
    const Entry entry = Find("Year");
    if (!Found(entry) || entry->second.size() != 1) return;
    const std::string value = entry->second.front();
    work_.erase(entry);   // a malformed year is dropped, not kept in a user frame
    if (looseYear || matchesShape(value, "####")) {
        setFrameAnsi(NewFrame(frameId("TYER")), value);
        return;
    }
    if (matchesShape(value, "####-##-##") || matchesShape(value, "#### ## ##")) {
        setFrameAnsi(NewFrame(frameId("TYER")), value.substr(0, 4));
        setFrameAnsi(NewFrame(frameId("TDAT")), value.substr(8, 2) + value.substr(5, 2));
        return;
    }
    if (matchesShape(value, "####-##")) {
        setFrameAnsi(NewFrame(frameId("TYER")), value.substr(0, 4));
        setFrameAnsi(NewFrame(frameId("TDAT")), "00" + value.substr(5, 2));
    }
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

using FrameSet = std::function<bool(uint32_t)>;

FrameContext StrictContext(const id3tag& tag) { return FrameContext{tag.overrides, tag.version, true}; }

void DropIndexedUserFrames(const id3tag& tag, FrameList& old) {
    const FrameContext strict = StrictContext(tag);
    old.remove_if([&](const id3frame& frame) {
        if (frame.id != frameId("TXXX")) return false;
        try {
            std::string description;
            TextCursor cursor;
            frameText(frame, strict.strict, description, 0, cursor);
            return stripIndexSuffix(description);
        } catch (const parseError&) {
            return true;
        }
    });
}

void RetainFrameGroup(const id3tag& tag, FrameList& old, FrameList& kept, TagValues& work, const FrameSet& set) {
    const FrameContext strict = StrictContext(tag);
    TagValues temp;
    bool any = false;
    for (const id3frame& frame : old) {
        if (!set(frame.id)) continue;
        any = true;
        try {
            frameToValues(frame, strict, temp);
        } catch (const parseError&) {
            return;
        }
    }
    if (!any || !valuesMatch(temp, work)) return;
    for (auto it = old.begin(); it != old.end();) {
        const auto next = std::next(it);
        if (set(it->id)) kept.splice(kept.end(), old, it);
        it = next;
    }
}

}  // namespace

bool isValidDateShape(const std::string& text) {
    for (const char* shape : {"####", "####-##", "####-##-##", "####-##-##T##", "####-##-##T##:##",
                              "####-##-##T##:##:##"}) {
        if (matchesShape(text, shape)) return true;
    }
    return false;
}

bool valuesMatch(const TagValues& temp, TagValues& work) {
    if (HasReplayGainName(temp)) return false;
    for (const auto& [name, list] : temp) {
        const auto found = work.find(name);
        if (found == work.end() || found->second != list) return false;
    }
    for (const auto& entry : temp) work.erase(entry.first);
    return true;
}

void retainMatchingFrames(const id3tag& tag, FrameList& old, TagValues& work) {
    DropIndexedUserFrames(tag, old);
    const FrameContext strict = StrictContext(tag);
    FrameList kept;
    for (auto it = old.begin(); it != old.end();) {
        const auto next = std::next(it);
        TagValues temp;
        bool broken = false;
        try {
            frameToValues(*it, strict, temp);
        } catch (const parseError&) {
            broken = true;
        }
        if (broken || HasReplayGainName(temp)) old.erase(it);   // rebuilt from `work` if wanted
        else if (valuesMatch(temp, work)) kept.splice(kept.end(), old, it);
        it = next;
    }
    const auto Is = [](std::initializer_list<uint32_t> ids) {
        return FrameSet([ids = std::vector<uint32_t>(ids)](uint32_t id) {
            return std::find(ids.begin(), ids.end(), id) != ids.end();
        });
    };
    RetainFrameGroup(tag, old, kept, work, [](uint32_t) { return true; });
    RetainFrameGroup(tag, old, kept, work, Is({frameId("COMM")}));
    RetainFrameGroup(tag, old, kept, work, Is({frameId("USLT")}));
    RetainFrameGroup(tag, old, kept, work, Is({frameId("TXXX")}));
    RetainFrameGroup(tag, old, kept, work, Is({frameId("TYER"), frameId("TDAT")}));
    old.swap(kept);
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
            setFrameText(frame, rest, encoding);
            const std::string url = utf8ToAnsi(value);
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
        const uint8_t commentEncoding = rest.starts_with("iTun") && hexOnly ? 0 : encoding;
        for (const std::string& value : list) {
            id3frame& frame = NewFrame(frameId("COMM"));
            setFrameText(frame, rest, commentEncoding);
            appendFrameText(frame, value);
        }
        return;
    }
    const auto UserFrame = [&](uint8_t frameEncoding, const std::vector<std::string>& values) {
        id3frame& frame = NewFrame(frameId("TXXX"));
        setFrameText(frame, name, frameEncoding);
        for (const std::string& value : values) appendFrameText(frame, value);
    };
    if (isReplayGainName(name)) {
        UserFrame(0, {list.front()});
    } else if (tag.version >= 4) {
        UserFrame(encoding, list);
    } else if (isSlashSplitUserName(name)) {
        UserFrame(encoding, {Join(list, "/")});
    } else {
        for (const std::string& value : list) UserFrame(encoding, {value});
    }
}

void valuesToFrames(id3tag& tag, const TagValues& values, const WriteSettings& settings) {
    if (tag.version != 3 && tag.version != 4) {
        tag.version = 3;
        tag.frames.remove_if([](id3frame& frame) {
            if (frame.id == frameId("APIC")) return false;
            if (frame.id != frameId("COMM") && frame.id != frameId("USLT")) return true;
            try {
                upgradeFrameEncoding(frame);
                return false;
            } catch (const parseError&) {
                return true;
            }
        });
    }
    uint8_t encoding = settings.encoding;
    if (tag.version < 4 && encoding > 1) encoding = 1;   // no UTF-8 before 2.4
    if (tag.version >= 4 && encoding == 2) encoding = 1;

    TagValues work = values;
    dedupeYear(work);
    FrameList old;
    old.splice(old.end(), tag.frames);
    retainMatchingFrames(tag, old, work);
    FrameBuilder(tag, work, encoding).BuildAll(settings.skipRating != 0, settings.looseYear != 0);
    for (const auto& [name, list] : work) {
        if (!list.empty()) writeLeftover(tag, name, list, encoding);
    }
    tag.frames.splice(tag.frames.end(), old);
}

}  // namespace id3parser
