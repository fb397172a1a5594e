// decode: the whole audio of a file through Open, SetPosition and
// DecodeBlock, written as WAV (RF64 past 4 GiB) or as raw sample bytes.

#include <cstdio>
#include <optional>
#include <string>

#include "host/commands.h"
#include "host/console.h"
#include "host/errors.h"
#include "host/littleendian.h"
#include "host/outputfile.h"
#include "host/plugin.h"
#include "host/progress.h"
#include "host/quittimer.h"
#include "host/session.h"
#include "host/text.h"
#include "host/wavwriter.h"

namespace host {
namespace {

struct DecodeOptions {
    std::string path;
    std::string outPath;
    bool raw = false;
    bool quiet = false;
    int64_t startFrame = 0;
    int64_t frameLimit = -1;   // below 0: all
};

DecodeOptions TakeDecodeOptions(std::vector<std::string>& args) {
    DecodeOptions options;
    if (!TakeOption(args, "-o", options.outPath)) throw UsageError("decode needs -o OUT (\"-\" for standard output)");
    if (options.outPath.empty()) throw UsageError("option -o needs a value");
    options.raw = TakeFlag(args, "--raw");
    options.quiet = TakeFlag(args, "--quiet");
    std::string text;
    if (TakeOption(args, "--start", text)) options.startFrame = ParseCount("--start", text);
    if (TakeOption(args, "--frames", text)) options.frameLimit = ParseCount("--frames", text);
    RequireArguments(args, 1, 1);
    options.path = args[0];
    return options;
}

// Bytes that --frames allows; all ones when there is no limit.
uint64_t ByteLimit(int64_t frameLimit, uint16_t blockAlign) {
    const uint64_t all = ~uint64_t{0};
    if (frameLimit < 0) return all;
    const auto frames = static_cast<uint64_t>(frameLimit);
    if (blockAlign != 0 && frames > all / blockAlign) return all;
    return frames * blockAlign;
}

int Failed(const CommonOptions& options, const std::string& what) {
    std::fprintf(stderr, "fdhost: %s (%s)\n", what.c_str(), WhereToSeeWhy(options).c_str());
    return kExitFailed;
}

// Copies blocks until the stream ends or the limit is reached; false when a
// DecodeBlock failed. The WAV header is made from the first block's format.
bool CopyBlocks(const Decoder& decoder, const DecodeOptions& options, OutputFile& out, int64_t durationMs) {
    std::optional<WavWriter> wav;
    uint64_t limit = 0;
    uint64_t written = 0;
    uint32_t bytesPerSecond = 1;
    int64_t startMs = 0;
    ProgressBar progress(!options.quiet, durationMs);
    for (bool first = true;; first = false) {
        DecoderBlockInfo block{};
        if (decoder.DecodeBlock(block) == 0) {
            if (wav) wav->Finish();
            progress.Finish();
            return false;
        }
        if (first) {
            const uint8_t* wave = block.format.wave;
            limit = ByteLimit(options.frameLimit, U16At(wave + 12));
            bytesPerSecond = U32At(wave + 8) ? U32At(wave + 8) : 1;
            const uint32_t rate = U32At(wave + 4);
            startMs = rate ? options.startFrame * 1000 / rate : 0;
            if (!options.raw) wav.emplace(out, block.format);
        }
        uint32_t bytes = block.bytes;
        if (bytes > limit - written) bytes = static_cast<uint32_t>(limit - written);
        if (wav) {
            wav->Write(block.samples, bytes);
        } else {
            out.Write(block.samples, bytes);
        }
        written += bytes;
        progress.Update(startMs + static_cast<int64_t>(written * 1000 / bytesPerSecond));
        // A block of 0 bytes without the end flag means the declared data
        // was read completely.
        if (block.endOfStream || block.bytes == 0 || written == limit) break;
    }
    if (wav) wav->Finish();
    progress.Finish();
    return true;
}

int RunDecode(CommandContext& context) {
    const DecodeOptions options = TakeDecodeOptions(context.args);
    // A reader that goes away (fdhost decode -o - | head) is an error to
    // report, not a signal that kills fdhost before it cleans up.
    console::IgnoreBrokenPipe();
    const Session session(context.options);
    const Decoder decoder(session.plugin(), session.CreateInfo());
    std::optional<QuitTimer> quit;
    if (context.options.quitAfterMs >= 0) quit.emplace(decoder, context.options.quitAfterMs);

    const std::u16string widePath = Utf8ToUtf16(options.path);
    DecoderOpenInfo open{};
    open.path = widePath.c_str();
    if (decoder.Open(open) == 0) {
        decoder.Close();
        return Failed(context.options, "the plug-in could not open " + options.path);
    }
    if (options.startFrame > 0 && decoder.SetPosition(options.startFrame) == 0) {
        decoder.Close();
        return Failed(context.options, "the plug-in could not seek to frame " + std::to_string(options.startFrame));
    }
    OutputFile out(options.outPath);
    const bool complete = CopyBlocks(decoder, options, out, open.format.durationMs);
    out.Close();
    decoder.Close();
    if (!complete) return Failed(context.options, "decoding " + options.path + " stopped early; the output holds what came");
    return kExitOk;
}

}  // namespace

const Command kDecodeCommand = {
    "decode", "PATH -o OUT [--raw] [--start FRAMES] [--frames N] [--quiet]",
    "decode PATH to a WAV file (RF64 past 4 GiB), or to raw samples with --raw; OUT \"-\" is standard output",
    RunDecode};

}  // namespace host
