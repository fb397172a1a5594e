#include "plugindriver.h"
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include "support/textcodec.h"

namespace it {
namespace {

// The log's UTF-16LE on a little-endian machine, as UTF-8.
std::string LogText(const std::string& path) {
    const std::string bytes = ReadFile(path);
    std::u16string units(bytes.size() / 2, u'\0');
    std::memcpy(units.data(), bytes.data(), units.size() * 2);
    return text::Utf16ToUtf8(units);
}

}  // namespace

PluginLibrary& Plugin() {
    static PluginLibrary library(FD_PLUGIN_PATH);
    return library;
}
TestDecoder::TestDecoder(PluginLibrary& library, const std::string& quit) : library_(library) {
    DecoderCreateInfo info{errorLog_.Get(), 0, traceLog_.Get()};
    decoder_ = library_.Create(&info);
    const std::u16string wide = text::Utf8ToUtf16(quit);
    DecoderParam param{};
    param.text = wide.c_str();
    if (!quit.empty() && library_.Set(decoder_, u"EventQuit", &param) == 0)
        throw std::runtime_error("the quit event " + quit + " was refused");
}
bool TestDecoder::Open(const std::string& path, uint32_t flags, DecoderOpenInfo* info) {
    path_ = text::Utf8ToUtf16(path);
    DecoderOpenInfo local{};
    DecoderOpenInfo& record = info ? *info : local;
    record.path = path_.c_str();
    record.flags = flags;
    return OpenRecord(record);
}
bool TestDecoder::ReadToEnd(std::string& samples, std::vector<DecoderBlockInfo>* blocks) {
    for (;;) {
        DecoderBlockInfo block{};
        if (!DecodeBlock(block)) return false;
        samples.append(static_cast<const char*>(block.samples), block.bytes);
        if (blocks) blocks->push_back(block);
        if (block.endOfStream || block.bytes == 0) return true;
    }
}
std::string TestDecoder::ErrorLog() const { return LogText(logs_.File("error.log")); }
std::string TestDecoder::TraceLog() const { return LogText(logs_.File("trace.log")); }
std::string MakePluginTree(const std::string& root, const std::string& worker) {
    namespace fs = std::filesystem;
    const fs::path tree = fs::path(root).make_preferred();
    const fs::path plugin = tree / "plugins" / fs::path(FD_PLUGIN_PATH).filename();
    fs::create_directories(plugin.parent_path());
    fs::copy_file(FD_PLUGIN_PATH, plugin);
    if (!worker.empty()) fs::copy_file(worker, tree / ("ffmpeg-lgpl" + fs::path(worker).extension().string()));
    return plugin.string();
}
Later::Later(std::chrono::milliseconds delay, std::function<void()> action)
    : thread_([this, delay, action] {
          std::unique_lock lock(mutex_);
          if (wake_.wait_for(lock, delay, [this] { return cancelled_; })) return;
          lock.unlock();
          action();
      }) {}
Later::~Later() {
    {
        std::lock_guard lock(mutex_);
        cancelled_ = true;
    }
    wake_.notify_all();
    thread_.join();
}
}  // namespace it
