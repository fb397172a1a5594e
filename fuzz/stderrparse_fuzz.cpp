// The parse of the worker's error text on arbitrary bytes, split into lines
// by the reader the plug-in uses, with the stream handing out pieces and the
// parse taking batches whose sizes the first byte chooses.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "codecs/decoders/ffmpeg/stderrparse.h"
#include "codecs/decoders/ffmpeg/stderrqueue.h"
#include "transport/exceptions.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

// Memory handed out at most `piece` bytes at a time, as a pipe would.
class PieceStream : public Qel::streamInMemory {
public:
    PieceStream(std::string_view text, size_t piece) : streamInMemory(text.data(), text.size()), piece_(piece) {}
    size_t readSome(void* buffer, size_t count) override { return read(buffer, count < piece_ ? count : piece_); }

private:
    size_t piece_;
};

std::vector<std::string> SplitLines(std::string_view text, size_t piece) {
    PieceStream stream(text, piece);
    StdErrLineReader reader(stream);
    std::vector<std::string> lines;
    try {
        for (;;) {
            lines.push_back(reader.ReadLine());
            Require(lines.back().find_first_of("\r\n") == std::string::npos);
        }
    } catch (const Qel::invalid_input&) {
    }
    return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t batchSize = 1 + data[0] % 8;
    const size_t piece = 1 + data[0] / 8;
    const std::vector<std::string> lines =
        SplitLines(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1), piece);

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
