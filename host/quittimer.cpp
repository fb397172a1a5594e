#include "host/quittimer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <cstdlib>
#include <vector>

#include "host/errors.h"
#include "host/text.h"

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

QuitTimer::QuitTimer(const Decoder& decoder, int64_t afterMs) : folder_(TempFolder()) {
    fifoPath_ = folder_ + "/quit";
    // Opened read-write so that a write never meets "no reader" and the
    // descriptor never sees a hang-up.
    if (::mkfifo(fifoPath_.c_str(), 0600) != 0 ||
        (fd_ = ::open(fifoPath_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) < 0) {
        const std::string reason = std::strerror(errno);
        ::unlink(fifoPath_.c_str());
        ::rmdir(folder_.c_str());
        throw HostError("cannot make the quit event " + fifoPath_ + ": " + reason);
    }
    const std::u16string name = Utf8ToUtf16(fifoPath_);
    DecoderParam param{};
    param.text = name.c_str();
    if (decoder.Set(u"EventQuit", param) == 0) {
        ::close(fd_);
        ::unlink(fifoPath_.c_str());
        ::rmdir(folder_.c_str());
        throw HostError("the plug-in refused the quit event " + fifoPath_);
    }
    thread_ = std::thread([this, afterMs] { WaitThenSet(afterMs); });
}

QuitTimer::~QuitTimer() {
    {
        std::lock_guard<std::mutex> hold(mutex_);
        finished_ = true;
    }
    wake_.notify_all();
    thread_.join();
    ::close(fd_);
    ::unlink(fifoPath_.c_str());
    ::rmdir(folder_.c_str());
}

void QuitTimer::WaitThenSet(int64_t afterMs) {
    std::unique_lock<std::mutex> hold(mutex_);
    if (wake_.wait_for(hold, std::chrono::milliseconds(afterMs), [this] { return finished_; })) return;
    const char byte = 1;
    // A full FIFO is set already; nothing else can go wrong that matters here.
    [[maybe_unused]] const ssize_t written = ::write(fd_, &byte, 1);
}

}  // namespace host
