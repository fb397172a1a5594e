// The named quit event as a FIFO that many decoders can watch at once.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "codecs/decoders/ffmpeg/quitevent.h"

std::string QuitEventPath(const clString& name) {
    std::string utf8 = name.ToUtf8();
    if (!utf8.empty() && utf8.front() == '/') return utf8;
    std::string path = "/tmp/";
    for (char c : utf8) path += (c == '/' || c == '\\') ? '_' : c;
    return path;
}

std::optional<Qel::aborter> OpenQuitEvent(const clString& name) {
    const std::string path = QuitEventPath(name);
    if (::mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST) return std::nullopt;
    int fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    // Anything but a FIFO (a plain file is always readable) would read as a
    // quit signal that is always set.
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISFIFO(st.st_mode)) {
        ::close(fd);
        return std::nullopt;
    }
    std::optional<Qel::aborter> event;
    event.emplace(static_cast<Qel::EventHandle>(fd), true);
    return event;
}
