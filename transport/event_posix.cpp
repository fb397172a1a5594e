// Events are eventfd counters used as manual-reset signals: set = add 1,
// reset = drain, test = poll without waiting. Draining reads any readable
// descriptor, so a FIFO that stands in for a named event works the same way.

#include <poll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <vector>

#include "transport/event.h"
#include "transport/exceptions.h"

namespace Qel {
namespace {

int ToFd(EventHandle handle) { return static_cast<int>(handle); }

// poll(2) takes an int; longer waits are made of several.
int PollSliceMs(int64_t remainingMs) {
    if (remainingMs < 0) return -1;
    return remainingMs > INT_MAX ? INT_MAX : static_cast<int>(remainingMs);
}

int SignalledIndex(const pollfd* fds, int count) {
    for (int i = 0; i < count; ++i) {
        if (fds[i].revents & POLLNVAL) return -1;
        if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) return static_cast<int>(i);
    }
    return -1;
}

}  // namespace

EventHandle CreateEventObject() {
    int fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0) throw bug_check();
    return fd;
}

void CloseEventObject(EventHandle handle) {
    if (handle != kNoEvent) ::close(ToFd(handle));
}

void SetEventObject(EventHandle handle) {
    uint64_t one = 1;
    // EAGAIN means the counter is saturated, which is still "set".
    while (::write(ToFd(handle), &one, sizeof one) < 0 && errno == EINTR) {
    }
}

void ResetEventObject(EventHandle handle) {
    uint8_t scratch[64];
    for (;;) {
        ssize_t got = ::read(ToFd(handle), scratch, sizeof scratch);
        if (got > 0) continue;
        if (got < 0 && errno == EINTR) continue;
        return;
    }
}

bool IsEventObjectSet(EventHandle handle) {
    pollfd fd{ToFd(handle), POLLIN, 0};
    int ready;
    do {
        ready = ::poll(&fd, 1, 0);
    } while (ready < 0 && errno == EINTR);
    return ready > 0 && (fd.revents & POLLIN);
}

int WaitForAnyEvent(const EventHandle* handles, int count, int64_t timeoutMs) {
    if (count <= 0) return -1;
    // The usual few descriptors need no heap.
    pollfd inlineFds[16];
    std::vector<pollfd> heapFds;
    pollfd* fds = inlineFds;
    if (count > 16) {
        heapFds.resize(static_cast<size_t>(count));
        fds = heapFds.data();
    }
    for (int i = 0; i < count; ++i) fds[i] = pollfd{ToFd(handles[i]), POLLIN, 0};
    const uint64_t start = TickCountMs();
    for (;;) {
        int64_t remaining = timeoutMs;
        if (timeoutMs >= 0) {
            int64_t elapsed = static_cast<int64_t>(TickCountMs() - start);
            remaining = elapsed >= timeoutMs ? 0 : timeoutMs - elapsed;
        }
        int ready = ::poll(fds, static_cast<nfds_t>(count), PollSliceMs(remaining));
        if (ready > 0) return SignalledIndex(fds, count);
        if (ready < 0 && errno != EINTR) return -1;
        if (ready == 0 && remaining <= INT_MAX) return -1;
    }
}

void SleepMs(int64_t ms) {
    if (ms <= 0) return;
    timespec rest{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (::nanosleep(&rest, &rest) < 0 && errno == EINTR) {
    }
}

uint64_t TickCountMs() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_nsec) / 1000000u;
}

}  // namespace Qel
