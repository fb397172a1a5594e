#pragma once
// clDecoder_ffmpeg: one decode or tagging job of the host. It owns the worker,
// its streams, the error-stream reader, the blobs and the audio buffer.

#include <cstdint>
#include <optional>

#include "codecs/decoders/ffmpeg/records.h"
#include "codecs/decoders/ffmpeg/stderrqueue.h"
#include "codecs/decoders/ffmpeg/wavestream.h"
#include "support/clBuffer.h"
#include "support/clLog.h"
#include "support/clString.h"
#include "transport/waitable.h"
#include "transport/worker.h"

class clDecoder_ffmpeg {
public:
    explicit clDecoder_ffmpeg(const DecoderCreateInfo& info);
    clDecoder_ffmpeg(const clDecoder_ffmpeg&) = delete;
    clDecoder_ffmpeg& operator=(const clDecoder_ffmpeg&) = delete;
    // Destroy: stops the reader, kills a running worker at once, then frees.
    ~clDecoder_ffmpeg();

    const clLogTarget* Log() const { return &log; }

    // The exports, one method each.
    bool Get(const char16_t* key, DecoderParam* param);
    bool Set(const char16_t* key, DecoderParam* param);
    bool Open(DecoderOpenInfo* info);
    bool Close();
    bool DecodeBlock(DecoderBlockInfo* block);
    bool SetPosition(int64_t position);
    bool DeleteATag(const char16_t* path, const char16_t* names);

    // Set("EventQuit"): installs the host's named quit event; null keeps the old one.
    bool SetQuitEvent(const char16_t* name);
    static bool WriteIDTags(clDecoder_ffmpeg* decoder, const char16_t* path,
                            const void* blob, uint32_t blobSize);

    bool StartWorker(int64_t position, DecoderOpenInfo* info);
    static std::string WorkerPath();
    // The worker's path for a plug-in at `self`. Relative (the bare name)
    // when `self` is unknown or lies in the root: the start refuses that.
    static std::string WorkerPathBeside(std::string self);
    static WorkerCommand BuildWorkerCommand(const std::string& pathUtf8, double seconds);
    static std::string SecondsText(double seconds);

    clLogTarget log;                       // the DecoderCreateInfo words; must stay first
    clString path;
    WorkerProcess worker;
    bool workerRunning = false;
    StdErrLineQueue lines;
    bool linesActive = false;
    std::optional<Qel::aborter> quitSignal;
    clBuffer tagBlob;
    clBuffer infoBlob;
    DecoderFormat format{};
    uint32_t formatTail = 0;
    clWaveFormat wave;
    uint64_t dataSize = ~uint64_t{0};
    uint64_t dataRead = 0;
    int64_t startPosition = 0;
    clBuffer block;
    // The last start read the stream header: the output pipe stands at a
    // sample. Until then DecodeBlock refuses, rather than hand out header
    // bytes as audio.
    bool headerRead = false;
    // Bytes of the next block that a cut-short DecodeBlock (a quit) already
    // took off the pipe; they wait at the start of `block`.
    size_t blockFill = 0;

private:
    // Stops the reader, then the worker: with the grace time, or at once.
    void StopWorker(bool killAtOnce);
    // StartWorker from the launch on: the worker, its reader, the stream
    // header and, with a record, the parse of the error text.
    bool LaunchAndRead(int64_t position, DecoderOpenInfo* info);
    // Open's step for the file's own tags; false only for an abort. Tags that
    // an engine can't read leave the worker's metadata, with a line in the log.
    bool ReadOwnTags(DecoderOpenInfo* info);
    // The worker gave no usable stream: tells a file that can't be opened
    // from one that can't be decoded.
    void ReportUndecodable();
};
