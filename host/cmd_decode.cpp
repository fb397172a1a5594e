// decode: the whole audio of a file through Open, SetPosition and
// DecodeBlock, written as WAV (RF64 past 4 GiB) or as raw sample bytes.

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <system_error>
#include <optional>
#include <string>

#include "host/cli.h"
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

void DefineDecode(CLI::App& command, CommandArgs& args) {
    DefinePathArgument(command, args);
    command.add_option("-o,--output", args.outPath, "the output file; \"-\" is standard output")
        ->type_name("OUT")
        ->required()
        ->check(NonEmpty());
    command.add_flag("-y,--overwrite", args.overwrite, "replace OUT when it exists");
    command.add_flag("--raw", args.raw, "raw sample bytes instead of WAV");
    command.add_option("--start", args.startFrame, "start at this frame (SetPosition)")
        ->type_name("FRAMES")
        ->check(WholeNumber());
    command.add_option("--frames", args.frameLimit, "decode at most N frames")->type_name("N")->check(WholeNumber());
    command.add_flag("--quiet", args.quiet, "no progress bar");
}

// An output that is the input (same device and inode, whatever the names)
// would be cut before it is read; an existing file is replaced only on
// request. A device or a pipe (/dev/null) holds nothing to lose. Returns
// whether the output may be replaced.
bool CheckOutput(const CommandArgs& args) {
    if (args.outPath == "-") return true;
    std::error_code error;
    const std::filesystem::path out = Utf8Path(args.outPath);
    if (!std::filesystem::exists(out, error)) return false;
    if (std::filesystem::equivalent(Utf8Path(args.path), out, error)) {
        throw UsageError("the output " + args.outPath + " is the input");
    }
    if (!std::filesystem::is_regular_file(out, error)) return true;
    if (!args.overwrite) throw UsageError("the output " + args.outPath + " exists (give -y to replace it)");
    return true;
}

// Bytes that --frames allows; all ones when there is no limit.
uint64_t ByteLimit(int64_t frameLimit, uint16_t blockAlign) {
    const uint64_t all = ~uint64_t{0};
    if (frameLimit < 0) return all;
    const auto frames = static_cast<uint64_t>(frameLimit);
    if (blockAlign != 0 && frames > all / blockAlign) return all;
    return frames * blockAlign;
}

// Copies blocks until the stream ends or the limit is reached; false when a
// DecodeBlock failed. The WAV header is made from the first block's format.
bool CopyBlocks(const Decoder& decoder, const CommandArgs& options, OutputFile& out, int64_t durationMs) {
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
    const CommandArgs& args = context.args;
    const bool replace = CheckOutput(args);
    // A reader that goes away (fdhost decode -o - | head) is an error to
    // report, not a signal that kills fdhost before it cleans up.
    console::IgnoreBrokenPipe();
    Session session(context.options);
    const std::string& path = args.path;
    bool complete = false;
    bool removed = false;
    {
        const Decoder decoder(session.plugin(), session.CreateInfo());
        const QuitTimer quit(decoder, context.options.quitAfterMs);
        const std::u16string widePath = Utf8ToUtf16(path);
        DecoderOpenInfo open{};
        open.path = widePath.c_str();
        if (decoder.Open(open) == 0) {
            decoder.Close();
            return session.Failed(path, "the plug-in could not open it");
        }
        if (args.startFrame > 0 && decoder.SetPosition(args.startFrame) == 0) {
            decoder.Close();
            return session.Failed(path, "the plug-in could not seek to frame " + std::to_string(args.startFrame));
        }
        OutputFile out(args.outPath, replace);
        complete = CopyBlocks(decoder, args, out, open.format.durationMs);
        decoder.Close();
        if (complete) out.Close();   // otherwise the partial output goes with `out`
        removed = !complete && out.RemovedUnlessClosed();
    }
    if (!complete) {
        return session.Failed(path, removed ? "decoding stopped early; the partial output was removed"
                                            : "decoding stopped early");
    }
    session.Warnings(path);
    return kExitOk;
}

}  // namespace

const Command kDecodeCommand = {"decode", "decode PATH to a WAV file (RF64 past 4 GiB) or to raw samples",
                                DefineDecode, RunDecode};

}  // namespace host
