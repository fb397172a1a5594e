#include "tags/id3v2/id3values.h"

#include <algorithm>
#include <unordered_set>

#include "tags/id3v2/id3genres.h"
#include "tags/id3v2/id3streams.h"
#include "tags/id3v2/id3text.h"

namespace id3parser {

const uint8_t ratingSteps[11] = {0, 0, 1, 32, 64, 96, 128, 160, 196, 228, 255};

namespace {

enum class Form { kOne, kMany, kUrl };
enum class Versions { kAny, kFourOnly, kBelowFour };

struct PlainFrame {
    uint32_t id;
    Form form;
    const char* name;
    Versions versions = Versions::kAny;
};

const PlainFrame kPlainFrames[] = {
    {frameId("TIT1"), Form::kMany, "Content Group"},
    {frameId("TIT2"), Form::kOne, "Title"},
    {frameId("TIT3"), Form::kOne, "Subtitle"},
    {frameId("TSST"), Form::kOne, "Set subtitle"},
    {frameId("TALB"), Form::kOne, "Album"},
    {frameId("TPE1"), Form::kMany, "Artist"},
    {frameId("TPE2"), Form::kMany, "Album Artist"},
    {frameId("TPE3"), Form::kMany, "Conductor"},
    {frameId("TPE4"), Form::kMany, "Interpreted, remixed, or otherwise modified by"},
    {frameId("TCOM"), Form::kMany, "Composer"},
    {frameId("TEXT"), Form::kMany, "Lyricist/Text writer"},
    {frameId("TPUB"), Form::kMany, "Label"},
    {frameId("TCOP"), Form::kOne, "Copyright"},
    {frameId("TENC"), Form::kOne, "Encoded by"},
    {frameId("TSSE"), Form::kOne, "Encoder Settings"},
    {frameId("TOWN"), Form::kOne, "File owner/licensee"},
    {frameId("TRSO"), Form::kOne, "Internet radio station owner"},
    {frameId("TOPE"), Form::kMany, "Original artist(s)/performer(s)"},
    {frameId("TOAL"), Form::kMany, "Original album/movie/show title"},
    {frameId("TCMP"), Form::kOne, "Compilation"},
    {frameId("GRP1"), Form::kOne, "iTunes Grouping"},
    {frameId("TSOT"), Form::kOne, "Title Sort"},
    {frameId("TSOA"), Form::kOne, "Album Sort"},
    {frameId("TSOP"), Form::kMany, "Artist Sort"},
    {frameId("TSO2"), Form::kMany, "Album Artist Sort"},
    {frameId("TSOC"), Form::kMany, "ComposerSort"},
    {frameId("TLAN"), Form::kMany, "Language(s)"},
    {frameId("TLEN"), Form::kOne, "Length"},
    {frameId("TKEY"), Form::kOne, "Initial key"},
    {frameId("TBPM"), Form::kOne, "BPM"},
    {frameId("TMED"), Form::kOne, "Source"},
    {frameId("TSRC"), Form::kOne, "ISRC"},
    {frameId("TRSN"), Form::kOne, "Internet radio station name"},
    {frameId("TDRL"), Form::kOne, "Release date"},
    {frameId("WCOM"), Form::kUrl, "Commercial information"},
    {frameId("WCOP"), Form::kUrl, "Copyright/Legal infromation"},
    {frameId("WOAF"), Form::kUrl, "Official audio file webpage"},
    {frameId("WOAR"), Form::kUrl, "Official artist/performer webpage"},
    {frameId("WOAS"), Form::kUrl, "Official audio source webpage"},
    {frameId("WORS"), Form::kUrl, "Official internet radio station homepage"},
    {frameId("WPAY"), Form::kUrl, "Payment"},
    {frameId("WPUB"), Form::kUrl, "Official publisher webpage"},
    {frameId("TDRC"), Form::kOne, "Year", Versions::kFourOnly},
    {frameId("TDOR"), Form::kOne, "Original release year", Versions::kFourOnly},
    {frameId("TIPL"), Form::kOne, "Involved People", Versions::kFourOnly},
    {frameId("TMCL"), Form::kOne, "Musician Credits", Versions::kFourOnly},
    {frameId("TORY"), Form::kOne, "Original release year", Versions::kBelowFour},
    {frameId("TRDA"), Form::kOne, "Recording dates", Versions::kBelowFour},
};

constexpr const char kYear[] = "Year";

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool AllDigits(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), IsDigit);
}

bool IsBlank(char c) { return c == ' '; }

std::string TrimRight(std::string text) {
    while (!text.empty() && IsBlank(text.back())) text.pop_back();
    return text;
}

void CheckVersion(Versions versions, const FrameContext& context) {
    if (!context.strict) return;
    if (versions == Versions::kFourOnly && context.version != 4) throw parseError();
    if (versions == Versions::kBelowFour && context.version >= 4) throw parseError();
}

std::string Text(const id3frame& frame, const FrameContext& context, uint64_t index, TextCursor& cursor) {
    std::string out;
    frameText(frame, context.strict, out, index, cursor);
    return out;
}

std::string FirstText(const id3frame& frame, const FrameContext& context) {
    TextCursor cursor;
    return Text(frame, context, 0, cursor);
}

std::string UrlBody(const id3frame& frame) {
    if (frame.data.empty()) throw parseError();
    const auto end = std::find(frame.data.begin(), frame.data.end(), 0);
    return latin1ToUtf8(std::string(frame.data.begin(), end));
}

void ReadPlain(const PlainFrame& row, const id3frame& frame, const FrameContext& context, TagValues& values) {
    CheckVersion(row.versions, context);
    const auto override = context.overrides.find(frame.id);
    const std::string name = override != context.overrides.end() ? override->second : row.name;
    if (row.form == Form::kUrl) {
        addValue(values, name, UrlBody(frame));
        return;
    }
    if (row.form == Form::kOne) {
        addValue(values, name, FirstText(frame, context));
        return;
    }
    const uint64_t count = frameTextCount(frame);
    TextCursor cursor;
    if (count == 1 && context.version < 4) {
        splitAtSlash(name, Text(frame, context, 0, cursor), values);
        return;
    }
    for (uint64_t i = 0; i < count; ++i) addValue(values, name, Text(frame, context, i, cursor));
}

bool HasYear(const TagValues& values) {
    const auto found = values.find(kYear);
    return found != values.end() && !found->second.empty();
}

// The first "Year" value, created empty when there is none.
std::string& FirstYear(TagValues& values) {
    std::vector<std::string>& list = values[kYear];
    if (list.empty()) list.emplace_back();
    return list.front();
}

// A date that TYER, TDAT and TIME build together, whatever their order.
struct DateParts {
    std::string year = "0000", month, day, time;
};

// False when `text` is no date that these frames could have built.
bool SplitDate(const std::string& text, DateParts& parts) {
    if (text.empty()) return true;
    if (!matchesShape(text, "####") && !matchesShape(text, "####-##") && !matchesShape(text, "####-##-##") &&
        !matchesShape(text, "####-##-##T##:##"))
        return false;
    parts.year = text.substr(0, 4);
    if (text.size() >= 7) parts.month = text.substr(5, 2);
    if (text.size() >= 10) parts.day = text.substr(8, 2);
    if (text.size() >= 16) parts.time = text.substr(11, 5);
    return true;
}

std::string JoinDate(const DateParts& parts) {
    std::string date = parts.year;
    if (parts.month.empty()) return date;
    date += "-" + parts.month;
    if (parts.day.empty()) return date;
    date += "-" + parts.day;
    return parts.time.empty() ? date : date + "T" + parts.time;
}

// TYER (YYYY), TDAT (DDMM) and TIME (HHMM): each sets its part of the first
// "Year" value. A text of another shape is kept only when nothing else is.
void ReadDatePart(const id3frame& frame, const FrameContext& context, TagValues& values) {
    CheckVersion(Versions::kBelowFour, context);
    const std::string s = FirstText(frame, context);
    if (s.size() != 4 || !AllDigits(s)) {
        if (context.strict) throw parseError();
        if (!HasYear(values)) addValue(values, kYear, s);
        return;
    }
    std::string& first = FirstYear(values);
    DateParts parts;
    if (!SplitDate(first, parts)) parts = DateParts{};
    if (frame.id == frameId("TYER")) {
        parts.year = s;
    } else if (frame.id == frameId("TDAT")) {
        parts.month = s.substr(2, 2);
        parts.day = s.substr(0, 2) == "00" ? "" : s.substr(0, 2);   // day 00: the month alone
    } else if (!parts.day.empty()) {
        parts.time = s.substr(0, 2) + ":" + s.substr(2, 2);
    }
    first = JoinDate(parts);
}

// At most this many values come from splitting one text; the rest stays one value.
constexpr size_t kMaxPieces = 1024;

// A genre that a frame already gave isn't added again: a list such as
// "Rock;(;(;..." would otherwise repeat one value millions of times.
void ReadGenres(const id3frame& frame, const FrameContext& context, TagValues& values) {
    const uint64_t count = frameTextCount(frame);
    TextCursor cursor;
    std::unordered_set<std::string> seen;
    const auto Add = [&](const std::string& genre) {
        if (seen.insert(genre).second) addValue(values, "Genre", genre);
    };
    for (uint64_t i = 0; i < count; ++i) {
        const std::string text = Text(frame, context, i, cursor);
        std::string out;
        if (context.version >= 4) {
            if (parseGenreText(text, out)) Add(out);
            continue;
        }
        size_t start = 0;
        for (size_t pieces = 1;; ++pieces) {
            while (start < text.size() && IsBlank(text[start])) ++start;
            const size_t semicolon = pieces < kMaxPieces ? text.find(';', start) : std::string::npos;
            std::string_view piece = std::string_view(text).substr(start, semicolon - std::min(semicolon, start));
            if (semicolon != std::string::npos) {
                while (!piece.empty() && IsBlank(piece.back())) piece.remove_suffix(1);
            }
            if (parseGenreText(piece, out)) Add(out);
            if (semicolon == std::string::npos) break;
            start = semicolon + 1;
        }
    }
}

void ReadComment(const id3frame& frame, const FrameContext& context, TagValues& values) {
    TextCursor cursor;
    const std::string description = Text(frame, context, 0, cursor);
    const std::string text = Text(frame, context, 1, cursor);
    addValue(values, description.empty() ? "Comment" : "Comment " + description, text);
}

void ReadRating(const id3frame& frame, TagValues& values) {
    const std::vector<uint8_t>& body = frame.data;
    const auto nul = std::find(body.begin(), body.end(), 0);
    if (nul == body.end() || nul + 1 == body.end()) throw parseError();
    const uint8_t rating = *(nul + 1);
    if (rating == 0) return;
    unsigned index = 0;
    while (rating > ratingSteps[index]) ++index;   // ends at 10 at the latest: 255 is the top step
    values["Rating"] = {std::to_string(index)};
}

void ReadUserFrame(const id3frame& frame, const FrameContext& context, TagValues& values) {
    const bool isUrl = frame.id == frameId("WXXX");
    const uint64_t count = frameTextCount(frame);
    if (count < 2) {
        if (context.strict) throw parseError();
        return;
    }
    TextCursor cursor;
    const std::string description = Text(frame, context, 0, cursor);
    std::string name = description;
    if (isUrl) name = description.empty() ? "User defined URL link" : "User defined URL link " + description;
    if (name.empty()) return;
    if (isUrl) {
        std::string url;
        frameUrlAfterDescription(frame, url);
        addValue(values, name, url);
        return;
    }
    if (isReplayGainName(name)) {
        const std::string value = Text(frame, context, 1, cursor);
        if (std::none_of(value.begin(), value.end(), IsDigit)) {
            if (context.strict) throw parseError();
            return;
        }
        addValue(values, name, value);
        return;
    }
    stripIndexSuffix(name);
    if (name.empty()) return;   // a description of only "[n]" names nothing
    if (context.version < 4 && count == 2 && isSlashSplitUserName(name)) {
        splitAtSlash(name, Text(frame, context, 1, cursor), values);
        return;
    }
    for (uint64_t i = 1; i < count; ++i) addValue(values, name, Text(frame, context, i, cursor));
}

}  // namespace

void frameToValues(const id3frame& frame, const FrameContext& context, TagValues& values) {
    if (frame.opaque) return;   // its bytes are kept, but nobody can read them
    for (const PlainFrame& row : kPlainFrames) {
        if (row.id == frame.id) {
            ReadPlain(row, frame, context, values);
            return;
        }
    }
    switch (frame.id) {
        case frameId("TYER"):
        case frameId("TDAT"):
        case frameId("TIME"): ReadDatePart(frame, context, values); return;
        case frameId("TRCK"): addValue(values, "Track", FirstText(frame, context)); return;
        case frameId("TPOS"): addValue(values, "Disc", FirstText(frame, context)); return;
        case frameId("TCON"): ReadGenres(frame, context, values); return;
        case frameId("COMM"): ReadComment(frame, context, values); return;
        case frameId("USLT"): {
            TextCursor cursor;
            addValue(values, "Lyrics", Text(frame, context, 1, cursor));
            return;
        }
        case frameId("POPM"): ReadRating(frame, values); return;
        case frameId("TXXX"):
        case frameId("WXXX"): ReadUserFrame(frame, context, values); return;
        default: return;   // pictures, the table of contents and unknown frames carry no values
    }
}

void framesToValues(const id3tag& tag, TagValues& values) {
    const FrameContext context{tag.overrides, tag.version, tag.strict != 0};
    for (const id3frame& frame : tag.frames) {
        try {
            frameToValues(frame, context, values);
        } catch (const parseError&) {
            // a damaged frame loses only itself
        }
    }
    dedupeYear(values);
}

void splitAtSlash(const std::string& name, const std::string& text, TagValues& values) {
    size_t start = 0;
    for (size_t pieces = 1; start < text.size(); ++pieces) {
        while (start < text.size() && IsBlank(text[start])) ++start;
        if (start == text.size()) return;
        const size_t slash = pieces < kMaxPieces ? text.find('/', start) : std::string::npos;
        if (slash == std::string::npos) {
            addValue(values, name, text.substr(start));
            return;
        }
        addValue(values, name, TrimRight(text.substr(start, slash - start)));
        start = slash + 1;
    }
}

bool stripIndexSuffix(std::string& name) {
    if (name.size() < 3 || name.back() != ']') return false;
    size_t at = name.size() - 1;
    while (at > 0 && IsDigit(name[at - 1])) --at;
    if (at == name.size() - 1 || at == 0 || name[at - 1] != '[') return false;
    name.erase(at - 1);
    return true;
}

bool isReplayGainName(const std::string& name) {
    for (const char* gain : {"replaygain_track_gain", "replaygain_track_peak", "replaygain_album_gain",
                             "replaygain_album_peak"}) {
        if (equalsNoCase(name, gain)) return true;
    }
    return false;
}

bool isSlashSplitUserName(const std::string& name) {
    for (const char* user : {"Soloist", "SoloistSort", "Soloists", "SoloistsSort", "ConductorSort"}) {
        if (equalsNoCase(name, user)) return true;
    }
    return false;
}

bool parseGenreText(std::string_view text, std::string& out) {
    const auto Number = [](std::string_view digits) {
        size_t n = 0;
        for (char c : digits) {
            n = n * 10 + static_cast<size_t>(c - '0');
            if (n >= kGenreCount) return kGenreCount;   // no genre; and no overflow
        }
        return n;
    };
    const bool digits = !text.empty() && std::all_of(text.begin(), text.end(), IsDigit);
    if (digits && Number(text) < kGenreCount) {
        out = genreNames[Number(text)];
        return true;
    }
    if (text.empty() || text[0] != '(') {
        out = text;
    } else if (text.size() > 1 && IsDigit(text[1])) {
        size_t end = 1;
        while (end < text.size() && IsDigit(text[end])) ++end;
        const size_t n = Number(text.substr(1, end - 1));
        out = n < kGenreCount ? genreNames[n] : "";
    } else if (text.size() > 2 && text[2] == 'X') {
        out = "Remix";
    } else if (text.size() > 2 && text[2] == 'R') {
        out = "Cover";
    } else if (text.size() > 1 && text[1] == '(') {
        out = std::string(text.substr(1));
    }
    return !out.empty();
}

}  // namespace id3parser
