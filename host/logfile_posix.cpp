#include "host/logfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>
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

LogFile LogFile::Temporary() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = (tmp && *tmp) ? tmp : "/tmp";
    pattern += "/fdhost-log-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = ::mkostemp(name.data(), O_APPEND | O_CLOEXEC);
    if (fd < 0) throw HostError(std::string("cannot make a temporary log: ") + std::strerror(errno));
    ::unlink(name.data());   // nameless from now on: nothing is left behind
    LogFile log;
    log.handle_ = MoveAboveStandardStreams(fd);
    if (log.handle_ < 0) throw HostError(std::string("cannot make a temporary log: ") + std::strerror(errno));
    return log;
}

std::string LogFile::ReadFrom(uint64_t offset) const {
    std::string bytes;
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::pread(static_cast<int>(handle_), buffer, sizeof buffer, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return bytes;
        bytes.append(buffer, static_cast<size_t>(got));
        offset += static_cast<uint64_t>(got);
    }
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
