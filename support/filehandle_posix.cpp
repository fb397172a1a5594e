#include "support/filehandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace filehandle {
namespace {

int Fd(clFileHandle handle) { return static_cast<int>(handle); }

int OpenFlags(uint32_t access) {
    const bool read = (access & clFile::kRead) != 0;
    const bool write = (access & clFile::kWrite) != 0;
    if (read && write) return O_RDWR;
    if (write) return O_WRONLY;
    return O_RDONLY;
}

}  // namespace

// Linux has no share modes that bind other openers; `shareMode` has no
// counterpart here.
// The open itself never waits: a FIFO without its other end would hold a
// plain open for ever, where no quit can reach it. The reads and writes on
// the handle block as usual.
clFileHandle Open(const clString& path, uint32_t access, uint32_t /*shareMode*/) {
    const std::string utf8 = path.ToUtf8();
    int fd = -1;
    do {
        fd = ::open(utf8.c_str(), OpenFlags(access) | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return kNoFileHandle;
    struct stat info {};
    const int flags = ::fcntl(fd, F_GETFL);
    if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode) || flags < 0 ||
        ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0) {
        const int error = S_ISDIR(info.st_mode) ? EISDIR : errno;
        ::close(fd);
        errno = error;
        return kNoFileHandle;
    }
    return fd;
}

void Close(clFileHandle handle) {
    if (handle == kNoFileHandle) return;
    const int savedErrno = errno;
    ::close(Fd(handle));   // no retry on EINTR: the descriptor is gone either way
    errno = savedErrno;
}

bool Read(clFileHandle handle, void* buffer, uint32_t count, uint32_t& done) {
    done = 0;
    auto* next = static_cast<char*>(buffer);
    while (done < count) {
        const ssize_t got = ::read(Fd(handle), next + done, count - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) break;
        done += static_cast<uint32_t>(got);
    }
    return true;
}

bool Write(clFileHandle handle, const void* buffer, uint32_t count, uint32_t& done) {
    done = 0;
    const auto* next = static_cast<const char*>(buffer);
    while (done < count) {
        const ssize_t put = ::write(Fd(handle), next + done, count - done);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return false;
        if (put == 0) {
            errno = ENOSPC;
            return false;
        }
        done += static_cast<uint32_t>(put);
    }
    return true;
}

bool Seek(clFileHandle handle, int64_t offset, int origin, int64_t& position) {
    int whence = SEEK_SET;
    if (origin == clFile::kFromEnd) whence = SEEK_END;
    if (origin == clFile::kFromCurrent) whence = SEEK_CUR;
    const off_t result = ::lseek(Fd(handle), static_cast<off_t>(offset), whence);
    if (result < 0) return false;
    position = result;
    return true;
}

bool Size(clFileHandle handle, int64_t& size) {
    struct stat info {};
    if (::fstat(Fd(handle), &info) != 0) return false;
    size = info.st_size;
    return true;
}

bool SetEndOfFile(clFileHandle handle) {
    const off_t here = ::lseek(Fd(handle), 0, SEEK_CUR);
    if (here < 0) return false;
    int result = -1;
    do {
        result = ::ftruncate(Fd(handle), here);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

clString LongPath(const clString& path) { return path; }

}  // namespace filehandle
