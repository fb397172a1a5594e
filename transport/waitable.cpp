// Waitable signals, the thread's current aborter and the wait for any of them.

#include "transport/waitable.h"

#include <cmath>
#include <utility>
#include <vector>

#include "transport/exceptions.h"

namespace Qel {
namespace {

thread_local aborter* currentAborter = nullptr;

int64_t RoundMs(double ms) { return ms <= 0.0 ? 0 : static_cast<int64_t>(std::llround(ms)); }

// The limit of one pass: for ever, the whole limit on the first pass, the rest later.
int64_t PassLimitMs(double timeoutSeconds, bool firstPass, uint64_t startTick) {
    if (timeoutSeconds < 0) return -1;
    double limitMs = timeoutSeconds * 1000.0;
    if (firstPass) return RoundMs(limitMs);
    double elapsed = static_cast<double>(TickCountMs() - startTick);
    return RoundMs(limitMs - elapsed);
}

void SleepFor(double timeoutSeconds) {
    if (timeoutSeconds >= 0) {
        SleepMs(RoundMs(timeoutSeconds * 1000.0));
        return;
    }
    for (;;) SleepMs(INT64_C(86400000));
}

}  // namespace

waitable::waitable() : handle_(CreateEventObject()) {}

waitable::waitable(EventHandle handle, bool owned) : handle_(handle), notOwned_(!owned) {}

waitable::waitable(waitable&& other) noexcept
    : handle_(std::exchange(other.handle_, kNoEvent)), notOwned_(other.notOwned_) {}

waitable& waitable::operator=(waitable&& other) noexcept {
    if (this == &other) return *this;
    if (!notOwned_) CloseEventObject(handle_);
    handle_ = std::exchange(other.handle_, kNoEvent);
    notOwned_ = other.notOwned_;
    return *this;
}

waitable::~waitable() {
    if (!notOwned_) CloseEventObject(handle_);
}

void waitable::Set() { SetEventObject(handle_); }
void waitable::Reset() { ResetEventObject(handle_); }
bool waitable::IsSet() const { return IsEventObjectSet(handle_); }

aborter* CurrentAborter() { return currentAborter; }
void SetCurrentAborter(aborter* value) { currentAborter = value; }

void CheckAbort() {
    if (currentAborter && currentAborter->IsSet()) throw user_abort();
}

int WaitAny(waitable* const* waitables, int count, double timeoutSeconds) {
    aborter* abort = currentAborter;
    const int offset = abort ? 1 : 0;
    const int total = count + offset;
    if (total <= 0) {
        SleepFor(timeoutSeconds);
        return -1;
    }
    EventHandle inlineHandles[16];
    std::vector<EventHandle> heapHandles;
    EventHandle* handles = inlineHandles;
    if (total > 16) {
        heapHandles.resize(static_cast<size_t>(total));
        handles = heapHandles.data();
    }
    if (abort) handles[0] = abort->Handle();
    for (int i = 0; i < count; ++i) handles[i + offset] = waitables[i]->Handle();

    uint64_t startTick = 0;
    for (bool firstPass = true;; firstPass = false) {
        if (firstPass) startTick = TickCountMs();
        const int64_t limitMs = PassLimitMs(timeoutSeconds, firstPass, startTick);
        int index = WaitForAnyEvent(handles, total, limitMs);
        if (index < 0 || index >= total) return -1;
        if (abort && index == 0) {
            if (abort->confirm()) throw user_abort();
        } else if (waitables[index - offset]->confirm()) {
            return index - offset;
        }
        // A signal that was not confirmed stays set; once the time is used up
        // another pass would find it again for ever.
        if (limitMs == 0) return -1;
    }
}

AborterScope::~AborterScope() {
    if (active_) currentAborter = previous_;
}

void AborterScope::Enter(aborter& value) {
    if (value.IsSet()) throw user_abort();
    // A second Enter on the same scope keeps the first saved value.
    if (!active_) previous_ = currentAborter;
    currentAborter = &value;
    active_ = true;
}

}  // namespace Qel
