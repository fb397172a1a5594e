#include "host/outputfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/errors.h"
#include "host/text.h"

namespace host {
namespace {

int Fd(intptr_t handle) { return static_cast<int>(handle); }

bool IsSeekable(int fd) {
    struct stat st {};
    if (::fstat(fd, &st) != 0) return false;
    return S_ISREG(st.st_mode) && ::lseek(fd, 0, SEEK_CUR) >= 0;
}

}  // namespace

OutputFile::OutputFile(const std::string& path, bool overwrite) : path_(path) {
    if (path == "-") {
        handle_ = STDOUT_FILENO;
        path_ = "standard output";
    } else {
        const int replace = overwrite ? O_TRUNC : O_EXCL;
        handle_ = ::open(path.c_str(), O_WRONLY | O_CREAT | replace | O_CLOEXEC, 0644);
        if (handle_ < 0) throw HostError("cannot create " + path + ": " + std::strerror(errno));
        owned_ = true;
        filePath_ = path;
    }
    seekable_ = IsSeekable(Fd(handle_));
}

OutputFile::~OutputFile() {
    if (owned_ && handle_ >= 0) ::close(Fd(handle_));
    std::error_code error;
    // Only a regular file: never a device such as /dev/null.
    if (owned_ && !kept_ && seekable_) std::filesystem::remove(Utf8Path(filePath_), error);
}

void OutputFile::Write(const void* bytes, size_t size) {
    const auto* at = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t written = ::write(Fd(handle_), at, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) throw HostError("cannot write " + path_ + ": " + std::strerror(errno));
        at += written;
        size -= static_cast<size_t>(written);
    }
}

void OutputFile::WriteAt(uint64_t offset, const void* bytes, size_t size) {
    const auto* at = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t written = ::pwrite(Fd(handle_), at, size, static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) throw HostError("cannot write " + path_ + ": " + std::strerror(errno));
        at += written;
        offset += static_cast<uint64_t>(written);
        size -= static_cast<size_t>(written);
    }
}

void OutputFile::Close() {
    if (!owned_ || handle_ < 0) return;
    const int fd = Fd(handle_);
    handle_ = -1;
    if (::close(fd) != 0) throw HostError("cannot write " + path_ + ": " + std::strerror(errno));
    kept_ = true;
}

}  // namespace host
