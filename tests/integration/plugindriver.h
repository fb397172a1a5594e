#pragma once
// The plug-in as a host meets it: loaded at run time, its exports resolved by
// name, each decoder with two logs of its own (UTF-16LE) read back as UTF-8.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>
#include "codecs/decoders/ffmpeg/exports.h"
#include "host/plugin.h"
#include "quitfifo.h"
#include "testkit.h"

namespace it {

// The tests load the plug-in exactly as fdhost does.
using PluginLibrary = host::Plugin;

// The plug-in beside the tests, loaded once per process.
PluginLibrary& Plugin();

class TestDecoder {
public:
    // With the host's quit event `quit`, when given (throws when refused).
    explicit TestDecoder(PluginLibrary& library = Plugin(), const std::string& quit = {});
    TestDecoder(const TestDecoder&) = delete;
    TestDecoder& operator=(const TestDecoder&) = delete;
    ~TestDecoder() { Destroy(); }
    bool Open(const std::string& path, uint32_t flags, DecoderOpenInfo* info = nullptr);
    bool OpenRecord(DecoderOpenInfo& record) { return library_.Open(decoder_, &record) != 0; }
    int64_t Get(const char16_t* key, DecoderParam& param) { return library_.Get(decoder_, key, &param); }
    bool DecodeBlock(DecoderBlockInfo& block) { return library_.DecodeBlock(decoder_, &block) != 0; }
    bool SetPosition(int64_t position) { return library_.SetPosition(decoder_, position) != 0; }
    bool Close() { return library_.Close(decoder_) != 0; }
    // Now; the destructor then does nothing.
    void Destroy() { if (decoder_ != nullptr) library_.Destroy(std::exchange(decoder_, nullptr)); }
    // All blocks to the end of the stream; false when a DecodeBlock failed.
    bool ReadToEnd(std::string& samples, std::vector<DecoderBlockInfo>* blocks = nullptr);
    std::string ErrorLog() const;
    std::string TraceLog() const;

private:
    PluginLibrary& library_;
    void* decoder_ = nullptr;
    TempDir logs_;
    SinkFile errorLog_{logs_.File("error.log")};
    SinkFile traceLog_{logs_.File("trace.log")};
    std::u16string path_;
};

// A tree as installed: in <root>/plugins a copy of the built plug-in (a copy, so that the loader doesn't hand back the
// one it has), in <root> a copy of `worker` named "ffmpeg-lgpl" (none when empty). Returns the plug-in's path.
std::string MakePluginTree(const std::string& root, const std::string& worker);

// Runs `action` after `delay` unless destroyed first. A plain flag and condition: a stop callback's removal can
// miss its wake-up under Wine and hang the destructor.
class Later {
public:
    Later(std::chrono::milliseconds delay, std::function<void()> action);
    ~Later();

private:
    std::mutex mutex_;
    std::condition_variable wake_;
    bool cancelled_ = false;
    std::thread thread_;
};

}  // namespace it
