// The quit event as a FIFO in a folder of its own.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "host/errors.h"
#include "host/quittimer.h"

namespace host {
namespace {

std::string TempFolder() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = (tmp && *tmp) ? tmp : "/tmp";
    pattern += "/fdhost-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (::mkdtemp(buffer.data()) == nullptr) {
        throw HostError(std::string("cannot make a folder for the quit event: ") + std::strerror(errno));
    }
    return buffer.data();
}

}  // namespace

void QuitTimer::MakeEvent() {
    folder_ = TempFolder();
    name_ = folder_ + "/quit";
    // Opened read-write so that a write never meets "no reader" and the
    // descriptor never sees a hang-up.
    if (::mkfifo(name_.c_str(), 0600) != 0 ||
        (handle_ = ::open(name_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) < 0) {
        const std::string reason = std::strerror(errno);
        ::unlink(name_.c_str());
        ::rmdir(folder_.c_str());
        throw HostError("cannot make the quit event " + name_ + ": " + reason);
    }
}

void QuitTimer::SignalEvent() {
    const char byte = 1;
    // A full FIFO is set already; nothing else can go wrong that matters here.
    [[maybe_unused]] const ssize_t written = ::write(static_cast<int>(handle_), &byte, 1);
}

void QuitTimer::RemoveEvent() {
    ::close(static_cast<int>(handle_));
    ::unlink(name_.c_str());
    ::rmdir(folder_.c_str());
}

}  // namespace host
