#include "host/logfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/errors.h"

namespace host {
namespace {

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

}  // namespace

LogFile::LogFile(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    handle_ = fd < 0 ? -1 : MoveAboveStandardStreams(fd);
    if (handle_ < 0) throw HostError("cannot open the log file " + path + ": " + std::strerror(errno));
}

void LogFile::Reset() {
    if (handle_ >= 0) close(static_cast<int>(handle_));
    handle_ = -1;
}

uint64_t LogFile::Sink() const { return handle_ < 0 ? 0 : static_cast<uint64_t>(handle_); }

std::string ExecutablePath() {
    std::error_code error;
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : exe.string();
}

const char* PluginFileName() { return "ffmpeg_decoder.so"; }

}  // namespace host
