#include "faultio.h"

#include <dlfcn.h>
#include <errno.h>
#include <limits.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <string>

namespace faults {
namespace {

using ReadFn = ssize_t (*)(int, void*, size_t);
using WriteFn = ssize_t (*)(int, const void*, size_t);
using TruncateFn = int (*)(int, off_t);

template <typename Fn>
Fn Real(const char* name) {
    return reinterpret_cast<Fn>(::dlsym(RTLD_NEXT, name));
}

ReadFn RealRead() {
    static const ReadFn fn = Real<ReadFn>("read");
    return fn;
}
WriteFn RealWrite() {
    static const WriteFn fn = Real<WriteFn>("write");
    return fn;
}
TruncateFn RealTruncate() {
    static const TruncateFn fn = Real<TruncateFn>("ftruncate");
    return fn;
}

// The active plan and what it has done; the test's own state.
struct State {
    std::mutex mutex;
    bool active = false;
    Plan plan;
    bool interruptNext = true;
    bool struck = false;   // an offset fault of a `once` plan has struck
    int64_t read = 0, written = 0, reads = 0, injected = 0;
};

State& TheState() {
    static State state;
    return state;
}

bool Targeted(int fd, const Plan& plan) {
    if (fd < 3) return false;
    char link[PATH_MAX];
    const std::string name = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t length = ::readlink(name.c_str(), link, sizeof link - 1);
    if (length <= 0) return false;
    return std::string(link, static_cast<size_t>(length)).rfind(plan.target, 0) == 0;
}

// The offset fault: the count the call may move, or -1 with errno set.
ssize_t AtOffset(State& state, int fd, ssize_t allowed, int64_t failsAt, int failErrno) {
    if (failsAt < 0 || allowed <= 0 || (state.plan.once && state.struck)) return allowed;
    const off_t here = ::lseek(fd, 0, SEEK_CUR);
    if (here < 0 || here > failsAt || here + allowed <= failsAt) return allowed;
    ++state.injected;
    if (here < failsAt) return static_cast<ssize_t>(failsAt - here);
    state.struck = true;
    errno = failErrno;
    return -1;
}

// Decides one call; returns -1 with errno set when the call is to fail now,
// else the count it may move.
ssize_t Decide(State& state, int fd, size_t count, int64_t done, int64_t failAfter, int64_t failsAt, int failErrno) {
    const Plan& plan = state.plan;
    if (plan.interrupt && (state.interruptNext = !state.interruptNext)) {
        ++state.injected;
        errno = EINTR;
        return -1;
    }
    if (failAfter >= 0 && done >= failAfter) {
        ++state.injected;
        errno = failErrno;
        return -1;
    }
    size_t allowed = count;
    if (failAfter >= 0) allowed = std::min<size_t>(allowed, static_cast<size_t>(failAfter - done));
    if (plan.maxChunk != 0) allowed = std::min(allowed, plan.maxChunk);
    if (allowed != count) ++state.injected;
    return AtOffset(state, fd, static_cast<ssize_t>(allowed), failsAt, failErrno);
}

}  // namespace

Scope::Scope(const Plan& plan) {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    state.plan = plan;
    state.interruptNext = true;
    state.struck = false;
    state.read = state.written = state.reads = state.injected = 0;
    state.active = true;
}

Scope::Scope(const Plan& plan, const std::string& target) : Scope([&] {
    Plan aimed = plan;
    aimed.target = target;
    return aimed;
}()) {}

Scope::~Scope() {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    state.active = false;
}

int64_t Injected() {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.injected;
}

int64_t BytesRead() {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.read;
}

int64_t BytesWritten() {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.written;
}

}  // namespace faults

using faults::TheState;

extern "C" ssize_t read(int fd, void* buffer, size_t count) {
    faults::State& state = TheState();
    ssize_t allowed = static_cast<ssize_t>(count);
    bool targeted = false;
    {
        const std::lock_guard lock(state.mutex);
        targeted = state.active && count != 0 && faults::Targeted(fd, state.plan);
        if (targeted) {
            const faults::Plan& plan = state.plan;
            if (plan.shrinkAfterReads >= 0 && state.reads++ == plan.shrinkAfterReads) {
                ++state.injected;
                (void)fd;
                ::truncate(plan.target.c_str(), plan.shrinkTo);   // the descriptor may be read-only
            }
            allowed = faults::Decide(state, fd, count, state.read, plan.readFailAfter, plan.readFailsAt, EIO);
            if (allowed < 0) return -1;
        }
    }
    const ssize_t got = faults::RealRead()(fd, buffer, static_cast<size_t>(allowed));
    if (targeted && got > 0) {
        const std::lock_guard lock(state.mutex);
        state.read += got;
    }
    return got;
}

extern "C" ssize_t write(int fd, const void* buffer, size_t count) {
    faults::State& state = TheState();
    ssize_t allowed = static_cast<ssize_t>(count);
    bool targeted = false;
    {
        const std::lock_guard lock(state.mutex);
        targeted = state.active && count != 0 && faults::Targeted(fd, state.plan);
        if (targeted) {
            allowed = faults::Decide(state, fd, count, state.written, state.plan.writeFailAfter,
                                     state.plan.writeFailsAt, ENOSPC);
            if (allowed < 0) return -1;
        }
    }
    const ssize_t put = faults::RealWrite()(fd, buffer, static_cast<size_t>(allowed));
    if (targeted && put > 0) {
        const std::lock_guard lock(state.mutex);
        state.written += put;
    }
    return put;
}

extern "C" int ftruncate(int fd, off_t length) {
    faults::State& state = TheState();
    {
        const std::lock_guard lock(state.mutex);
        if (state.active && faults::Targeted(fd, state.plan)) {
            if (state.plan.interrupt && (state.interruptNext = !state.interruptNext)) {
                ++state.injected;
                errno = EINTR;
                return -1;
            }
        }
    }
    return faults::RealTruncate()(fd, length);
}
