#include "codecs/decoders/ffmpeg/stderrparse.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "codecs/decoders/ffmpeg/stderrqueue.h"

namespace {

constexpr double kBatchTimeoutSeconds = 5.0;
constexpr std::string_view kIndent = "  ";
constexpr std::string_view kInputStart = "Input #0,";
constexpr std::string_view kStreamStart = "Stream #0:";

// Removes every byte of value 32 or less from both ends.
std::string_view Trim(std::string_view text) {
    while (!text.empty() && static_cast<unsigned char>(text.front()) <= 32) text.remove_prefix(1);
    while (!text.empty() && static_cast<unsigned char>(text.back()) <= 32) text.remove_suffix(1);
    return text;
}

std::string_view TrimTrailingBlanks(std::string_view text) {
    while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
    return text;
}

char LowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool EndsWithNoCase(std::string_view text, std::string_view suffix) {
    if (text.size() < suffix.size()) return false;
    text.remove_prefix(text.size() - suffix.size());
    for (size_t i = 0; i < suffix.size(); ++i) {
        if (LowerAscii(text[i]) != LowerAscii(suffix[i])) return false;
    }
    return true;
}

std::vector<std::string_view> SplitAtCommas(std::string_view text) {
    std::vector<std::string_view> pieces;
    for (;;) {
        const size_t comma = text.find(',');
        pieces.push_back(text.substr(0, comma));
        if (comma == std::string_view::npos) return pieces;
        text.remove_prefix(comma + 1);
    }
}

// At the first ":" into two trimmed parts; without one all is the left part.
std::pair<std::string_view, std::string_view> SplitAtColon(std::string_view piece) {
    const size_t colon = piece.find(':');
    if (colon == std::string_view::npos) return {Trim(piece), {}};
    return {Trim(piece.substr(0, colon)), Trim(piece.substr(colon + 1))};
}

// Digits make an integer, a "." starts the fraction, anything else is passed
// over; a second "." makes the whole text -1. Unsigned, so that a flood of
// digits wraps instead of overflowing.
double Number(std::string_view text) {
    uint64_t integer = 0;
    double divisor = 1.0;
    bool inFraction = false;
    for (char c : text) {
        if (c == '.') {
            if (inFraction) return -1.0;
            inFraction = true;
        } else if (c >= '0' && c <= '9') {
            integer = integer * 10 + static_cast<uint64_t>(c - '0');
            if (inFraction) divisor *= 10.0;
        }
    }
    return static_cast<double>(integer) / divisor;
}

// HH:MM:SS.cc, with any number of ":"-separated parts.
double DurationSeconds(std::string_view value) {
    double total = 0.0;
    for (size_t colon = value.find(':'); colon != std::string_view::npos; colon = value.find(':')) {
        total = (total + Number(value.substr(0, colon))) * 60.0;
        value.remove_prefix(colon + 1);
    }
    return total + Number(value);
}

// The digits at the start of the value, held at the largest u32.
uint64_t LeadingInteger(std::string_view text) {
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') break;
        value = std::min<uint64_t>(value * 10 + static_cast<uint64_t>(c - '0'), UINT32_MAX);
    }
    return value;
}

void ParseBitrate(StdErrParse& parse, std::string_view value) {
    if (EndsWithNoCase(value, " kb/s")) {
        parse.bitrate = static_cast<uint32_t>(std::min<uint64_t>(LeadingInteger(value) * 1000, UINT32_MAX));
    } else if (EndsWithNoCase(value, " b/s")) {
        parse.bitrate = static_cast<uint32_t>(LeadingInteger(value));
    }
}

void ParseDurationLine(StdErrParse& parse, std::string_view text) {
    for (std::string_view piece : SplitAtCommas(text)) {
        const auto [left, value] = SplitAtColon(piece);
        if (left == "Duration") {
            parse.durationSeconds = DurationSeconds(value);
        } else if (left == "bitrate") {
            ParseBitrate(parse, value);
        }
    }
}

int64_t TruncatedMilliseconds(double seconds) {
    const double ms = seconds * 1000.0;
    if (std::isnan(ms)) return 0;
    // 2^63 as a double; the cast below is defined only inside the range.
    constexpr double kLimit = 9223372036854775808.0;
    if (ms >= kLimit) return std::numeric_limits<int64_t>::max();
    if (ms <= -kLimit) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(ms);
}

}  // namespace

void ParseStdErr(const TakeLinesFunction& takeLines, StdErrParse& parse) {
    parse = StdErrParse{};
    while (!parse.done) {
        // A silent batch counts as the end of the dump, not as a failure.
        const std::vector<std::string> lines = takeLines();
        if (lines.empty()) return;
        for (const std::string& line : lines) {
            if (parse.done) break;
            ParseStdErrLine(parse, line);
        }
    }
}

void ParseStdErr(StdErrLineQueue& queue, StdErrParse& parse) {
    ParseStdErr([&queue] { return queue.TakeLines(kBatchTimeoutSeconds); }, parse);
}

void ParseStdErrLine(StdErrParse& parse, std::string_view line) {
    if (line.starts_with(kIndent)) {
        if (parse.inInput) ParseDumpLine(parse, line.substr(kIndent.size()));
        return;
    }
    // Only the first input counts; the banner before it and all behind it are passed over.
    if (parse.inInput) {
        parse.done = true;
    } else if (line.starts_with(kInputStart)) {
        parse.inInput = true;
    }
}

void ParseDumpLine(StdErrParse& parse, std::string_view text) {
    if (text.starts_with(kIndent) && parse.inMetadata) {
        ParseMetadataLine(parse, text.substr(kIndent.size()));
        return;
    }
    if (parse.inStreams && ParseStreamLine(parse, Trim(text))) return;
    if (text == "Metadata:") {
        parse.inMetadata = true;
        parse.inStreams = false;
        return;
    }
    // The streams' own Metadata lines are indented further and never equal
    // "Metadata:", so only the input's block, before this line, is collected.
    if (text.starts_with("Duration: ")) {
        parse.inMetadata = false;
        parse.inStreams = true;
        ParseDurationLine(parse, text);
    }
}

bool ParseStreamLine(StdErrParse& parse, std::string_view text) {
    if (!text.starts_with(kStreamStart)) return false;
    // Behind the stream's number and any language or id part.
    const size_t colon = text.find(':', kStreamStart.size());
    if (colon == std::string_view::npos) return false;

    const std::vector<std::string_view> pieces = SplitAtCommas(text.substr(colon + 1));
    StdErrStream stream;
    const auto [type, codec] = SplitAtColon(pieces.front());
    stream.type = type;
    stream.codec = codec;
    for (size_t i = 1; i < pieces.size(); ++i) stream.details.emplace_back(Trim(pieces[i]));
    parse.streams.push_back(std::move(stream));
    return true;
}

void ParseMetadataLine(StdErrParse& parse, std::string_view text) {
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos) return;
    std::string_view value = text.substr(colon + 1);
    if (value.starts_with(' ')) value.remove_prefix(1);
    const std::string_view key = TrimTrailingBlanks(text.substr(0, colon));

    if (!key.empty()) {
        parse.metadata.emplace_back(std::string(key), std::string(value));
        return;
    }
    if (parse.metadata.empty()) return;
    std::string& last = parse.metadata.back().second;
    last.push_back('\n');
    last.append(value);
}

void DeliverStdErr(const StdErrParse& parse, DecoderFormat& format, IDTags& metadata, IDTags& info) {
    format.durationMs = TruncatedMilliseconds(parse.durationSeconds);
    format.bitrate = parse.bitrate;
    for (const StdErrStream& stream : parse.streams) {
        if (stream.type == "Audio") info.Add(clString(u"Encoder"), clString::FromUtf8(stream.codec));
    }
    for (const auto& [key, value] : parse.metadata) {
        if (!value.empty()) metadata.Add(clString::FromUtf8(key), clString::FromUtf8(value));
    }
}
