#pragma once
// The parse of the worker's dump of its input, as printed on its error
// stream: duration, bitrate, the input's own metadata and the codec of each
// stream. The audio format never comes from here; the stream header rules it.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "codecs/decoders/ffmpeg/records.h"
#include "tags/idtags.h"

class StdErrLineQueue;

struct StdErrStream {
    std::string type;                  // "Audio", "Video", ...
    std::string codec;                 // the text behind the type up to the first comma
    std::vector<std::string> details;  // the comma-separated rest, trimmed
};

struct StdErrParse {
    bool inInput = false;              // "Input #0," was seen
    bool done = false;                 // the end of that input's dump was seen
    bool inMetadata = false;           // inside the input's "Metadata:" block
    bool inStreams = false;            // "Duration: " was seen; stream lines may follow
    std::vector<std::pair<std::string, std::string>> metadata;
    double durationSeconds = 0.0;
    uint32_t bitrate = 0;              // bits per second
    std::vector<StdErrStream> streams;
};

// Gives the next batch of lines; an empty batch ends the parse.
using TakeLinesFunction = std::function<std::vector<std::string>()>;

// Starts from a zeroed `parse` and runs until the dump has ended or a batch
// comes back empty.
void ParseStdErr(const TakeLinesFunction& takeLines, StdErrParse& parse);
// Over the reader's queue, waiting at most 5 seconds for each batch.
// Raises Qel::user_abort when the calling thread's aborter is set.
void ParseStdErr(StdErrLineQueue& queue, StdErrParse& parse);

// One line as it came from the error stream.
void ParseStdErrLine(StdErrParse& parse, std::string_view line);
// One line of the input's dump, behind its first two blanks.
void ParseDumpLine(StdErrParse& parse, std::string_view text);
// A trimmed "Stream #0:..." line; false when it isn't one.
bool ParseStreamLine(StdErrParse& parse, std::string_view text);
// A "key : value" line of the Metadata block; an empty key continues the last value.
void ParseMetadataLine(StdErrParse& parse, std::string_view text);

// Duration and bitrate into `format`; one "Encoder" per audio stream into
// `info`; the metadata pairs with a value into `metadata`.
void DeliverStdErr(const StdErrParse& parse, DecoderFormat& format, IDTags& metadata, IDTags& info);
