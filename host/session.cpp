#include "host/session.h"

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "host/errors.h"
#include "host/text.h"

#ifndef FD_HOST_INSTALL_PLUGIN_DIR
#define FD_HOST_INSTALL_PLUGIN_DIR "../lib/fdhost/plugins"
#endif

namespace host {
namespace {

Plugin LoadPlugin(const CommonOptions& options) {
    if (!options.pluginPath.empty()) return Plugin(options.pluginPath);
    return Plugin(DefaultPluginPath());
}

// Started afresh, then appended to, so that every piece lands at the end even
// when --trace-log names the same file.
std::ofstream OpenCopy(const std::string& path) {
    std::ofstream copy;
    if (path.empty()) return copy;
    copy.open(Utf8Path(path), std::ios::binary | std::ios::trunc);
    copy.close();
    copy.open(Utf8Path(path), std::ios::binary | std::ios::app);
    if (!copy) throw HostError("cannot open the log file " + path);
    return copy;
}

// "message  [Function::Label]" loses the label; other text stays as it is.
std::u16string WithoutLabel(std::u16string line) {
    if (line.empty() || line.back() != u']') return line;
    const size_t open = line.rfind(u"  [");
    if (open != std::u16string::npos) line.resize(open);
    return line;
}

}  // namespace

Session::Session(const CommonOptions& options)
    : errorLog_(LogFile::Temporary()),
      traceLog_(options.traceLogPath.empty() ? LogFile() : LogFile(options.traceLogPath)),
      errorCopy_(OpenCopy(options.errorLogPath)),
      plugin_(LoadPlugin(options)) {}

DecoderCreateInfo Session::CreateInfo() const {
    DecoderCreateInfo info{};
    info.errorLog = errorLog_.Sink();
    info.traceLog = traceLog_.Sink();
    return info;
}

std::vector<std::string> Session::TakeLogLines() {
    const std::string bytes = errorLog_.ReadFrom(relayed_);
    relayed_ += bytes.size();
    if (errorCopy_.is_open()) errorCopy_.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush();
    return LogLines(bytes);
}

int Session::Failed(const std::string& subject, const std::string& fallback) {
    std::vector<std::string> lines = TakeLogLines();
    if (lines.empty()) lines.push_back(fallback);
    for (const std::string& line : lines) std::fprintf(stderr, "fdhost: %s: %s\n", subject.c_str(), line.c_str());
    return kExitFailed;
}

std::vector<std::string> Session::Warnings(const std::string& subject) {
    std::vector<std::string> lines = TakeLogLines();
    for (const std::string& line : lines) {
        std::fprintf(stderr, "fdhost: warning: %s: %s\n", subject.c_str(), line.c_str());
    }
    return lines;
}

std::vector<std::string> LogLines(const std::string& utf16le) {
    std::vector<std::string> lines;
    std::u16string line;
    const auto finish = [&] {
        if (!line.empty() && line.back() == u'\r') line.pop_back();
        line = WithoutLabel(std::move(line));
        if (!line.empty()) lines.push_back(Utf16ToUtf8(line));
        line.clear();
    };
    for (size_t i = 0; i + 1 < utf16le.size(); i += 2) {
        const auto unit = static_cast<char16_t>(static_cast<unsigned char>(utf16le[i]) |
                                                static_cast<unsigned char>(utf16le[i + 1]) << 8);
        if (unit == u'\n') {
            finish();
            continue;
        }
        line += unit;
    }
    finish();
    return lines;
}

std::string DefaultPluginPath() {
    const std::string exe = ExecutablePath();
    if (exe.empty()) throw HostError("cannot find fdhost's own folder; give --plugin PATH");
    const std::filesystem::path dir = Utf8Path(exe).parent_path();
    const std::filesystem::path inBuildTree = dir / "plugins" / PluginFileName();
    std::error_code error;
    if (std::filesystem::exists(inBuildTree, error)) return PathUtf8(inBuildTree);
    return PathUtf8((dir / FD_HOST_INSTALL_PLUGIN_DIR / PluginFileName()).lexically_normal());
}

}  // namespace host
