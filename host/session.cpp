#include "host/session.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/errors.h"

#ifndef FD_HOST_INSTALL_PLUGIN_DIR
#define FD_HOST_INSTALL_PLUGIN_DIR "../lib/fdhost/plugins"
#endif

namespace host {
namespace {

constexpr const char* kPluginFile = "ffmpeg_decoder.so";

// Descriptor 0 means "no log" to the plug-in, so a log must never get it,
// even when fdhost was started with its standard input closed.
int MoveAboveStandardStreams(int fd) {
    if (fd > 2) return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    const int saved = errno;
    close(fd);
    errno = saved;
    return moved;
}

Plugin LoadPlugin(const CommonOptions& options) {
    if (!options.pluginPath.empty()) return Plugin(options.pluginPath);
    return Plugin(DefaultPluginPath());
}

}  // namespace

LogFile::LogFile(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    fd_ = fd < 0 ? -1 : MoveAboveStandardStreams(fd);
    if (fd_ < 0) throw HostError("cannot open the log file " + path + ": " + std::strerror(errno));
}

LogFile::LogFile(LogFile&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

LogFile& LogFile::operator=(LogFile&& other) noexcept {
    if (this == &other) return *this;
    if (fd_ >= 0) close(fd_);
    fd_ = std::exchange(other.fd_, -1);
    return *this;
}

LogFile::~LogFile() {
    if (fd_ >= 0) close(fd_);
}

uint64_t LogFile::Sink() const { return fd_ < 0 ? 0 : static_cast<uint64_t>(fd_); }

Session::Session(const CommonOptions& options)
    : errorLog_(options.errorLogPath.empty() ? LogFile() : LogFile(options.errorLogPath)),
      traceLog_(options.traceLogPath.empty() ? LogFile() : LogFile(options.traceLogPath)),
      plugin_(LoadPlugin(options)) {}

DecoderCreateInfo Session::CreateInfo() const {
    DecoderCreateInfo info{};
    info.errorLog = errorLog_.Sink();
    info.traceLog = traceLog_.Sink();
    return info;
}

std::string DefaultPluginPath() {
    std::error_code error;
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) throw HostError("cannot find fdhost's own folder; give --plugin PATH");
    const std::filesystem::path dir = exe.parent_path();
    const std::filesystem::path inBuildTree = dir / "plugins" / kPluginFile;
    if (std::filesystem::exists(inBuildTree, error)) return inBuildTree.string();
    return (dir / FD_HOST_INSTALL_PLUGIN_DIR / kPluginFile).lexically_normal().string();
}

std::string WhereToSeeWhy(const CommonOptions& options) {
    if (options.errorLogPath.empty()) return "give --error-log FILE to see why";
    return "its error log " + options.errorLogPath + " tells why";
}

}  // namespace host
