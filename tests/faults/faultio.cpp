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

// The C library's own function, one per signature, looked up once.
template <typename Fn>
Fn Real(const char* name) {
    static const Fn fn = reinterpret_cast<Fn>(::dlsym(RTLD_NEXT, name));
    return fn;
}
// The active plan and what it has done; the test's own state.
struct State {
    std::mutex mutex;
    bool active = false, interruptNext = true, struck = false;   // struck: an offset fault of a `once` plan
    Plan plan;
    int64_t read = 0, written = 0, reads = 0, injected = 0;
};
State& TheState() {
    static State state;
    return state;
}
int64_t Locked(int64_t State::*field) {
    const std::lock_guard lock(TheState().mutex);
    return TheState().*field;
}
bool Targeted(int fd, const Plan& plan) {
    char link[PATH_MAX];
    const std::string name = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t length = fd < 3 ? -1 : ::readlink(name.c_str(), link, sizeof link - 1);
    return length > 0 && std::string(link, static_cast<size_t>(length)).rfind(plan.target, 0) == 0;
}
// Sets errno and counts the fault: -1 to return.
ssize_t Fail(State& state, int error) {
    ++state.injected;
    errno = error;
    return -1;
}
// Every other call of an interrupting plan fails with EINTR.
bool Interrupts(State& state) { return state.plan.interrupt && (state.interruptNext = !state.interruptNext); }

// The offset fault: the count the call may move, or -1.
ssize_t AtOffset(State& state, int fd, ssize_t allowed, int64_t failsAt, int failErrno) {
    if (failsAt < 0 || allowed <= 0 || (state.plan.once && state.struck)) return allowed;
    const off_t here = ::lseek(fd, 0, SEEK_CUR);
    if (here < 0 || here > failsAt || here + allowed <= failsAt) return allowed;
    if (here < failsAt) return ++state.injected, static_cast<ssize_t>(failsAt - here);
    state.struck = true;
    return Fail(state, failErrno);
}
// Decides one call: -1 with errno set when it is to fail now, else the count it may move.
ssize_t Decide(State& state, int fd, size_t count, int64_t done, int64_t failAfter, int64_t failsAt, int failErrno) {
    if (Interrupts(state)) return Fail(state, EINTR);
    if (failAfter >= 0 && done >= failAfter) return Fail(state, failErrno);
    size_t allowed = failAfter >= 0 ? std::min<size_t>(count, static_cast<size_t>(failAfter - done)) : count;
    if (state.plan.maxChunk != 0) allowed = std::min(allowed, state.plan.maxChunk);
    if (allowed != count) ++state.injected;
    return AtOffset(state, fd, static_cast<ssize_t>(allowed), failsAt, failErrno);
}
// One read or write: `decide` (under the lock, for a targeted call) gives the
// count it may move or -1; `call` moves it; `moved` counts what it moved.
template <typename DecideFn, typename CallFn>
ssize_t Through(int fd, size_t count, int64_t State::*moved, DecideFn decide, CallFn call) {
    State& state = TheState();
    ssize_t allowed = static_cast<ssize_t>(count);
    bool targeted = false;
    {
        const std::lock_guard lock(state.mutex);
        targeted = state.active && count != 0 && Targeted(fd, state.plan);
        if (targeted && (allowed = decide(state)) < 0) return -1;
    }
    const ssize_t done = call(static_cast<size_t>(allowed));
    if (targeted && done > 0) {
        const std::lock_guard lock(state.mutex);
        state.*moved += done;
    }
    return done;
}

}  // namespace

Scope::Scope(const Plan& plan) : Scope(plan, plan.target) {}
Scope::Scope(const Plan& plan, const std::string& target) {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    state.plan = plan;
    state.plan.target = target;
    state.interruptNext = true;
    state.struck = false;
    state.read = state.written = state.reads = state.injected = 0;
    state.active = true;
}
Scope::~Scope() {
    const std::lock_guard lock(TheState().mutex);
    TheState().active = false;
}
int64_t Injected() { return Locked(&State::injected); }
int64_t BytesRead() { return Locked(&State::read); }
int64_t BytesWritten() { return Locked(&State::written); }

}  // namespace faults

using faults::State;

extern "C" ssize_t read(int fd, void* buffer, size_t count) {
    const auto decide = [&](State& state) {
        const faults::Plan& plan = state.plan;
        if (plan.shrinkAfterReads >= 0 && state.reads++ == plan.shrinkAfterReads) {
            ++state.injected;
            ::truncate(plan.target.c_str(), plan.shrinkTo);   // the descriptor may be read-only
        }
        return faults::Decide(state, fd, count, state.read, plan.readFailAfter, plan.readFailsAt, EIO);
    };
    return faults::Through(fd, count, &State::read, decide, [&](size_t allowed) {
        return faults::Real<ssize_t (*)(int, void*, size_t)>("read")(fd, buffer, allowed);
    });
}
extern "C" ssize_t write(int fd, const void* buffer, size_t count) {
    const auto decide = [&](State& state) {
        return faults::Decide(state, fd, count, state.written, state.plan.writeFailAfter, state.plan.writeFailsAt, ENOSPC);
    };
    return faults::Through(fd, count, &State::written, decide, [&](size_t allowed) {
        return faults::Real<ssize_t (*)(int, const void*, size_t)>("write")(fd, buffer, allowed);
    });
}
extern "C" int ftruncate(int fd, off_t length) {
    State& state = faults::TheState();
    {
        const std::lock_guard lock(state.mutex);
        if (state.active && faults::Targeted(fd, state.plan) && faults::Interrupts(state)) return faults::Fail(state, EINTR);
    }
    return faults::Real<int (*)(int, off_t)>("ftruncate")(fd, length);
}
