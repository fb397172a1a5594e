// The named quit event as a FIFO that many decoders can watch at once.
// Whatever stands at the path is looked at before it is opened: only a FIFO
// of this user is opened, never through a symbolic link, so that a name can
// neither open a file or device nor hand the quit to somebody else.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "codecs/decoders/ffmpeg/quitevent.h"
#include "transport/event.h"

namespace {

// A FIFO that this user owns: another user who made the name first could
// set it (cancelling every decode) or leave it without a writer.
bool IsOwnFifo(const struct stat& st) { return S_ISFIFO(st.st_mode) && st.st_uid == ::geteuid(); }

// lstat, so that a symbolic link is seen as what it is; a missing FIFO is made.
bool LookAtOrMake(const std::string& path, struct stat& st) {
    if (::lstat(path.c_str(), &st) == 0) return IsOwnFifo(st);
    if (errno != ENOENT) return false;
    if (::mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST) return false;
    return ::lstat(path.c_str(), &st) == 0 && IsOwnFifo(st);
}

}  // namespace

std::string QuitEventPath(const clString& name) {
    std::string utf8 = name.ToUtf8();
    if (!utf8.empty() && utf8.front() == '/') return utf8;
    std::string path = "/tmp/";
    for (char c : utf8) path += (c == '/' || c == '\\') ? '_' : c;
    return path;
}

std::optional<Qel::aborter> OpenQuitEvent(const clString& name) {
    std::optional<Qel::aborter> event;
    // No name: an event of this decoder alone, as an unnamed event would be.
    if (name.Empty()) {
        event.emplace(Qel::CreateEventObject(), true);
        return event;
    }
    const std::string path = QuitEventPath(name);
    struct stat seen {};
    if (!LookAtOrMake(path, seen)) return std::nullopt;
    const int fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return std::nullopt;
    // The name may have been replaced between the look and the open.
    struct stat opened {};
    if (::fstat(fd, &opened) != 0 || !IsOwnFifo(opened) || opened.st_dev != seen.st_dev ||
        opened.st_ino != seen.st_ino) {
        ::close(fd);
        return std::nullopt;
    }
    event.emplace(static_cast<Qel::EventHandle>(fd), true);
    return event;
}
