// The decode run: a worker per start, its Wave64 output read block by block,
// its error text parsed once per Open. A seek is a new worker with "-ss".

#include "codecs/decoders/ffmpeg/decoder.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "codecs/decoders/ffmpeg/capabilities.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "codecs/decoders/ffmpeg/quitevent.h"
#include "codecs/decoders/ffmpeg/selfpath.h"
#include "codecs/decoders/ffmpeg/stderrparse.h"
#include "support/clFile.h"
#include "tags/idtags.h"
#include "tags/stdtags.h"
#include "transport/exceptions.h"

namespace {

constexpr const char* kOpenLabel = "clDecoder_ffmpeg::Open";
constexpr const char* kCloseLabel = "clDecoder_ffmpeg::Close";
// Both ways into StartWorker, Open and SetPosition, report under this one label.
constexpr const char* kStartLabel = "clDecoder_ffmpeg::SetPosition";
constexpr const char* kDecodeLabel = "clDecoder_ffmpeg::DecodeBlock";

constexpr uint32_t kFramesPerBlock = 4096;

uint32_t LittleU32(const uint8_t* bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}

// Cuts `path` behind its last folder separator; empty when there is none.
std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind(FolderSeparator());
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// The record's fields are packed, so they are set here rather than bound.
void SetTagBlob(const IDTags& tags, clBuffer& blob, DecoderOpenInfo* info) {
    tags.Serialise(blob);
    info->tags = blob.Data();
    info->tagsSize = blob.Size();
}

void SetInfoBlob(const IDTags& tags, clBuffer& blob, DecoderOpenInfo* info) {
    tags.Serialise(blob);
    info->info = blob.Data();
    info->infoSize = blob.Size();
}

}  // namespace

clDecoder_ffmpeg::clDecoder_ffmpeg(const DecoderCreateInfo& info) {
    log.errorLog = info.errorLog;
    log.reserved = info.reserved;
    log.traceLog = info.traceLog;
}

clDecoder_ffmpeg::~clDecoder_ffmpeg() {
    // Destroy doesn't spend the worker's grace time.
    StopWorker(true);
}

void clDecoder_ffmpeg::StopWorker(bool killAtOnce) {
    if (linesActive || lines.Active()) {
        lines.Stop();
        linesActive = false;
    }
    if (!workerRunning) return;
    if (killAtOnce) {
        worker.Terminate();
    } else {
        worker.Stop();
    }
    workerRunning = false;
}

bool clDecoder_ffmpeg::SetQuitEvent(const char16_t* name) {
    if (name == nullptr) return true;
    std::optional<Qel::aborter> event = OpenQuitEvent(clString(name));
    if (!event) return false;
    quitSignal = std::move(event);
    return true;
}

std::string clDecoder_ffmpeg::WorkerPath() { return WorkerPathBeside(OwnLibraryPath()); }

std::string clDecoder_ffmpeg::WorkerPathBeside(std::string self) {
    if (!self.empty() && self.front() == '"') {
        self.erase(0, 1);
        self = self.substr(0, self.find('"'));
    }
    std::string folder = FolderOf(self);
    while (!folder.empty() && folder.back() == FolderSeparator()) folder.pop_back();
    // The parent folder, with its separator: the worker lies one folder above the plug-in.
    return FolderOf(folder) + WorkerFileName();
}

std::string clDecoder_ffmpeg::SecondsText(double seconds) {
    // 2^64: beyond it the conversion to an integer would be undefined.
    const double scaled = std::floor(1000000.0 * std::fabs(seconds) + 0.5);
    const uint64_t v = scaled < 18446744073709551616.0 ? static_cast<uint64_t>(scaled) : ~uint64_t{0};
    std::string text = seconds < 0.0 ? "-" : "";
    text += std::to_string(v / 1000000);
    uint64_t fraction = v % 1000000;
    if (fraction == 0) return text;
    std::string digits = std::to_string(fraction);
    digits.insert(0, 6 - digits.size(), '0');
    digits.erase(digits.find_last_not_of('0') + 1);
    return text + "." + digits;
}

WorkerCommand clDecoder_ffmpeg::BuildWorkerCommand(const std::string& pathUtf8, double seconds) {
    WorkerCommand command;
    command.args.push_back(WorkerFileName());
    if (seconds > 0.0) {
        command.args.push_back("-ss");
        command.args.push_back(SecondsText(seconds));
    }
    command.args.push_back("-i");
    command.args.push_back(pathUtf8);
    command.args.push_back("-f");
    command.args.push_back("w64");
    command.args.push_back("-");
    command.exe = WorkerPath();
    command.stdinMode = 0;
    command.stdoutMode = 2;
    command.stderrMode = 2;
    return command;
}

bool clDecoder_ffmpeg::Open(DecoderOpenInfo* info) {
    clLog::Trace(u"->->", Log(), kOpenLabel);
    if (info == nullptr) return false;
    if (info->flags & kOpenExternalPackets) {
        clLog::Error(u"Error cannot decode external-packet data.", Log(), kOpenLabel);
        return false;
    }
    clString opening(u"Opening file '");
    if (info->path) opening.Append(info->path);
    opening.Append(u"' for read access: ");
    // No line end: the next trace line continues this one.
    clLog::Trace(opening.Text(), Log(), nullptr, false);
    if (info->path == nullptr) {
        clLog::Error(u"Attempting to open null file path.", Log(), kOpenLabel);
        return false;
    }
    path.Set(info->path);
    if (!StartWorker(0, info)) return false;
    info->format = format;
    info->reserved = formatTail;
    if ((info->flags & (kOpenWantTags | kOpenWantInfo)) && !ReadOwnTags(info)) return false;
    clLog::Trace(u"<-<-", Log(), kOpenLabel);
    return true;
}

bool clDecoder_ffmpeg::ReadOwnTags(DecoderOpenInfo* info) {
    const int family = TagFamilyOf(path);
    if (family == 0) return true;
    IDTags tags;
    clString version;
    clString failure;
    const bool read = family == 4 ? MatroskaTags::Read(path, tags, Log(), &failure)
                                  : ReadStdTags(path, tags, version, Log(), &failure);
    if (!read) {
        // An abort ends the Open silently. Tags that can't be read are no
        // reason to refuse audio that the worker decodes: its metadata stays.
        if (failure.Empty()) return false;
        if (!failure.View().ends_with(u'.')) failure.Append(u".");
        failure.Append(u" The tags shown are the metadata that FFmpeg read.");
        clLog::Error(failure, Log(), kOpenLabel);
        return true;
    }
    if (info->flags & kOpenWantTags) SetTagBlob(tags, tagBlob, info);
    if ((info->flags & kOpenWantInfo) && !version.Empty()) {
        IDTags information;
        if (info->info != nullptr) information.Parse(info->info, info->infoSize);
        information.Add(clString(u"ID Tag"), version);
        SetInfoBlob(information, infoBlob, info);
    }
    return true;
}

bool clDecoder_ffmpeg::StartWorker(int64_t position, DecoderOpenInfo* info) {
    StopWorker(false);
    dataSize = ~uint64_t{0};
    startPosition = position;
    dataRead = 0;
    headerRead = false;
    blockFill = 0;
    const bool started = LaunchAndRead(position, info);
    // Whatever the outcome, nobody takes the worker's later lines.
    lines.Discard();
    return started;
}

bool clDecoder_ffmpeg::LaunchAndRead(int64_t position, DecoderOpenInfo* info) {
    try {
        Qel::AborterScope scope;
        if (quitSignal) scope.Enter(*quitSignal);

        // The previous start's rate: a seek only works after an Open.
        double seconds = 0.0;
        const uint32_t rate = LittleU32(format.wave + 4);
        if (position > 0 && rate != 0) seconds = static_cast<double>(position) / rate;

        worker.Start(BuildWorkerCommand(path.ToUtf8(), seconds));
        workerRunning = true;
        lines.Start(worker.Stderr());
        linesActive = true;

        ReadStreamHeader(worker.Stdout(), wave, format, dataSize);
        headerRead = true;
        if (info == nullptr) return true;

        StdErrParse parse;
        ParseStdErr(lines, parse);
        IDTags metadata;
        IDTags information;
        DeliverStdErr(parse, format, metadata, information);
        if (info->flags & kOpenWantTags) SetTagBlob(metadata, tagBlob, info);
        if (info->flags & kOpenWantInfo) SetInfoBlob(information, infoBlob, info);
        return true;
    } catch (const Qel::user_abort&) {
        return false;
    } catch (const Qel::invalid_input&) {
        ReportUndecodable();
        return false;
    } catch (const std::exception& e) {
        clLog::Error(clString::Format(u"FFmpeg error: %hs", e.what()), Log(), kStartLabel);
        return false;
    }
}

void clDecoder_ffmpeg::ReportUndecodable() {
    if (!IsUrl(path)) {
        clFile file(path);
        file.showMessages = false;
        file.shareMode = 3;
        if (!file.Open(clFile::kRead)) {
            clLog::Error(clFile::OpenErrorText(path), Log(), kStartLabel);
            return;
        }
        file.Close();
    }
    clLog::Error(u"File could not be decoded", Log(), kStartLabel);
}

bool clDecoder_ffmpeg::DecodeBlock(DecoderBlockInfo* out) {
    if (!workerRunning || !headerRead || out == nullptr) return false;
    try {
        Qel::AborterScope scope;
        if (quitSignal) scope.Enter(*quitSignal);

        const uint32_t blockBytes = uint32_t{wave.BlockAlign()} * kFramesPerBlock;
        if (!block.Resize(blockBytes)) return false;
        const uint64_t left = dataSize - dataRead;
        const uint32_t want = static_cast<uint32_t>(std::min<uint64_t>(blockBytes, left));
        // Milliseconds since the last start plus that start's frame position:
        // unlike units, kept as the host has always received them.
        const uint64_t position =
            dataRead * 1000 / wave.AvgBytesPerSecond() + static_cast<uint64_t>(startPosition);

        // A block cut short by a quit keeps what it took, and goes on from
        // there: the stream never shifts against the frames.
        size_t got = blockFill;
        blockFill = 0;
        try {
            Qel::ReadResumable(worker.Stdout(), block.Data(), want, got);
        } catch (...) {
            blockFill = got;
            throw;
        }
        dataRead += got;
        out->format = format;
        out->reserved = formatTail;
        out->position = position;
        // A finite data chunk ends where its declared size is used up, also
        // when that falls on a block's end: a host waits for this flag.
        out->endOfStream = got < want || dataRead >= dataSize ? 1 : 0;
        out->bytes = static_cast<uint32_t>(got);
        out->samples = block.Data();
        return true;
    } catch (const Qel::user_abort&) {
        return false;
    } catch (const std::exception& e) {
        clLog::Error(clString::Format(u"Decode error: %hs", e.what()), Log(), kDecodeLabel);
        return false;
    }
}

bool clDecoder_ffmpeg::SetPosition(int64_t position) { return StartWorker(position, nullptr); }

bool clDecoder_ffmpeg::Close() {
    clLog::Trace(u"->->", Log(), kCloseLabel);
    StopWorker(false);
    clLog::Trace(u"<-<-", Log(), kCloseLabel);
    return true;
}
