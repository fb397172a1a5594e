// The parse of the worker's error text on arbitrary bytes, split into lines
// and handed over in batches whose size the first byte chooses.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "codecs/decoders/ffmpeg/stderrparse.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

std::vector<std::string> SplitLines(std::string_view text) {
    std::vector<std::string> lines;
    for (size_t end; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1)) {
        lines.emplace_back(text.substr(0, end));
    }
    return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t batchSize = 1 + data[0] % 8;
    const std::vector<std::string> lines =
        SplitLines(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1));

    size_t next = 0;
    StdErrParse parse;
    ParseStdErr(
        [&] {
            std::vector<std::string> batch;
            while (next < lines.size() && batch.size() < batchSize) batch.push_back(lines[next++]);
            return batch;
        },
        parse);

    DecoderFormat format{};
    IDTags metadata;
    IDTags info;
    DeliverStdErr(parse, format, metadata, info);
    Require(format.bitrate == parse.bitrate);
    size_t audio = 0;
    for (const StdErrStream& stream : parse.streams) audio += stream.type == "Audio" ? 1 : 0;
    Require(static_cast<size_t>(info.Count()) == audio);
    Require(static_cast<size_t>(metadata.Count()) <= parse.metadata.size());

    // The line parsers on their own, outside any state the dump would set up.
    StdErrParse loose;
    for (const std::string& line : lines) {
        ParseMetadataLine(loose, line);
        ParseStreamLine(loose, line);
        ParseDumpLine(loose, line);
    }
    return 0;
}
