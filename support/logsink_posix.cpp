#include "support/logsink.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>

namespace logsink {
namespace {

// A sink that is a pipe whose reader went away must not kill the host with
// SIGPIPE: the signal is blocked on this thread for the write, and one that
// the write raised is taken back before the mask is restored.
class SigPipeBlock {
public:
    SigPipeBlock() {
        sigemptyset(&pipeSet_);
        sigaddset(&pipeSet_, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipeSet_, &oldMask_);
    }
    ~SigPipeBlock() {
        if (!wasPending_) {
            sigset_t pending;
            sigpending(&pending);
            if (sigismember(&pending, SIGPIPE) == 1) {
                const timespec zero{};
                sigtimedwait(&pipeSet_, nullptr, &zero);
            }
        }
        pthread_sigmask(SIG_SETMASK, &oldMask_, nullptr);
    }
    SigPipeBlock(const SigPipeBlock&) = delete;
    SigPipeBlock& operator=(const SigPipeBlock&) = delete;

private:
    sigset_t pipeSet_{};
    sigset_t oldMask_{};
    bool wasPending_ = false;
};

}  // namespace

bool IsNone(uint64_t sink) { return sink == 0 || sink == UINT64_MAX || sink > static_cast<uint64_t>(INT_MAX); }

void Write(uint64_t sink, const void* bytes, size_t count) {
    if (IsNone(sink)) return;
    const int fd = static_cast<int>(sink);
    const auto* next = static_cast<const char*>(bytes);
    // errno belongs to the caller's error path (OpenErrorText may follow).
    const int savedErrno = errno;
    {
        SigPipeBlock noSigPipe;
        while (count > 0) {
            const ssize_t written = ::write(fd, next, count);
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) break;
            next += written;
            count -= static_cast<size_t>(written);
        }
    }
    errno = savedErrno;
}

}  // namespace logsink
