// Pipe streams on Linux. The parent's end is non-blocking: a read tries the
// pipe first, and only when it is empty polls the pipe together with the
// current aborter, within the time limit. A pipe that holds data thus costs
// one system call per piece, and the aborter is looked at only where the
// call would wait. Nothing is ever left pending, so an abort or a time-out
// can't touch the buffer afterwards.

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <optional>

#include "transport/event.h"
#include "transport/exceptions.h"
#include "transport/pipestream.h"
#include "transport/waitable.h"

namespace Qel {
namespace {

constexpr size_t kPieceSize = 0x1000000;   // 16 MiB

[[noreturn]] void RaiseForErrno(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            throw file_not_found();
        case ENOTEMPTY:
            throw directory_not_empty();
        case EEXIST:
            throw file_already_exists();
        default:
            throw file_access_error();
    }
}

int64_t LimitMs(double timeoutSeconds) {
    if (timeoutSeconds <= 0) return -1;
    return static_cast<int64_t>(std::floor(timeoutSeconds * 1000.0 + 0.5));
}

int ToFd(PipeHandle handle) { return static_cast<int>(handle); }

// Waits until the pipe is ready for `events` (or has hung up). Raises
// user_abort for the current aborter and network_error_timeout at the limit.
// `deadline` belongs to the piece, so wake-ups without progress don't extend it.
void WaitForPipe(int fd, short events, int64_t limitMs, uint64_t deadline) {
    aborter* abort = CurrentAborter();
    pollfd fds[2] = {{fd, events, 0}, {abort ? static_cast<int>(abort->Handle()) : -1, POLLIN, 0}};
    const nfds_t count = abort ? 2 : 1;
    for (;;) {
        int sliceMs = -1;
        if (limitMs >= 0) {
            uint64_t now = TickCountMs();
            int64_t remaining = now >= deadline ? 0 : static_cast<int64_t>(deadline - now);
            sliceMs = static_cast<int>(std::min<int64_t>(remaining, INT_MAX));
        }
        int ready = ::poll(fds, count, sliceMs);
        if (ready < 0) {
            if (errno == EINTR) continue;
            throw file_access_error();
        }
        // The pipe comes first: data that is there is taken even when an abort came too.
        if (fds[0].revents != 0) return;
        if (count == 2 && fds[1].revents != 0) throw user_abort();
        if (ready == 0 && sliceMs >= 0 && TickCountMs() >= deadline) throw network_error_timeout();
    }
}

// Data that is there is taken even when the aborter is set: a caller that
// loops for as long as data comes looks at the aborter itself.
size_t ReadPiece(int fd, uint8_t* buffer, size_t count, int64_t limitMs) {
    if (count == 0) return 0;
    std::optional<uint64_t> deadline;   // set at the first wait: a pipe with data never reads the clock
    for (;;) {
        ssize_t got = ::read(fd, buffer, count);
        if (got >= 0) return static_cast<size_t>(got);   // 0: the writer's end
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) RaiseForErrno(errno);
        if (!deadline) deadline = TickCountMs() + static_cast<uint64_t>(std::max<int64_t>(limitMs, 0));
        WaitForPipe(fd, POLLIN, limitMs, *deadline);
    }
}

// write(2) on a pipe without a reader raises SIGPIPE in the writing thread,
// which would end the host. The signal is blocked for the call, and one that
// the call raised is taken back before the mask is restored; a SIGPIPE that
// was pending before isn't ours and stays.
ssize_t WriteWithoutSigpipe(int fd, const uint8_t* buffer, size_t count) {
    sigset_t pipeOnly;
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    sigset_t pending;
    sigemptyset(&pending);
    ::sigpending(&pending);
    const bool wasPending = sigismember(&pending, SIGPIPE) == 1;
    sigset_t oldMask;
    ::pthread_sigmask(SIG_BLOCK, &pipeOnly, &oldMask);
    ssize_t written = ::write(fd, buffer, count);
    const int error = errno;
    if (written < 0 && error == EPIPE && !wasPending) {
        const timespec noWait{0, 0};
        while (::sigtimedwait(&pipeOnly, nullptr, &noWait) < 0 && errno == EINTR) {
        }
    }
    ::pthread_sigmask(SIG_SETMASK, &oldMask, nullptr);
    errno = error;
    return written;
}

void WritePiece(int fd, const uint8_t* buffer, size_t count, int64_t limitMs) {
    CheckAbort();
    const uint64_t deadline = TickCountMs() + static_cast<uint64_t>(std::max<int64_t>(limitMs, 0));
    size_t done = 0;
    while (done < count) {
        ssize_t written = WriteWithoutSigpipe(fd, buffer + done, count - done);
        if (written > 0) {
            done += static_cast<size_t>(written);
            continue;
        }
        if (written == 0) throw file_access_error();
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) RaiseForErrno(errno);
        WaitForPipe(fd, POLLOUT, limitMs, deadline);
    }
}

}  // namespace

size_t streamInOverlapped::read(void* buffer, size_t count) {
    const int64_t limitMs = LimitMs(timeoutSeconds);
    uint8_t* bytes = static_cast<uint8_t*>(buffer);
    size_t total = 0;
    while (total < count) {
        size_t piece = std::min(count - total, kPieceSize);
        size_t got = ReadPiece(ToFd(handle), bytes + total, piece, limitMs);
        if (got == 0) break;
        total += got;
    }
    return total;
}

size_t streamInOverlapped::readSome(void* buffer, size_t count) {
    return ReadPiece(ToFd(handle), static_cast<uint8_t*>(buffer), std::min(count, kPieceSize),
                     LimitMs(timeoutSeconds));
}

void streamOutOverlapped::write(const void* buffer, size_t count) {
    const int64_t limitMs = LimitMs(timeoutSeconds);
    const uint8_t* bytes = static_cast<const uint8_t*>(buffer);
    size_t total = 0;
    while (total < count) {
        size_t piece = std::min(count - total, kPieceSize);
        WritePiece(ToFd(handle), bytes + total, piece, limitMs);
        total += piece;
    }
}

}  // namespace Qel
