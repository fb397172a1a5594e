// The quit event as a FIFO in a folder of its own.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
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

// The event that Ctrl-C sets. A signal handler reaches nothing but what is
// global, so the descriptor waits here while a QuitTimer lives.
std::atomic<int> interruptEvent{-1};

extern "C" void SetOnInterrupt(int /*signal*/) {
    const int fd = interruptEvent.load();
    const char byte = 1;
    if (fd < 0) return;
    [[maybe_unused]] const ssize_t written = ::write(fd, &byte, 1);
}

void Handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

}  // namespace

void QuitTimer::CatchInterrupt() {
    interruptEvent.store(static_cast<int>(handle_));
    Handle(SIGINT, SetOnInterrupt);
    Handle(SIGTERM, SetOnInterrupt);
}

void QuitTimer::ReleaseInterrupt() {
    Handle(SIGINT, SIG_DFL);
    Handle(SIGTERM, SIG_DFL);
    interruptEvent.store(-1);
}

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
