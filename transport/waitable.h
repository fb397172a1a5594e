#pragma once
// Manual-reset signals, the per-thread current aborter and the wait for any of
// several signals. Every blocking wait of a thread also waits for that
// thread's current aborter and raises Qel::user_abort when it is set.

#include <cstdint>
#include <optional>

#include "transport/event.h"

namespace Qel {

class waitable {
public:
    waitable();                                   // a new, owned, unsignalled event
    explicit waitable(EventHandle handle, bool owned);
    waitable(const waitable&) = delete;
    waitable& operator=(const waitable&) = delete;
    waitable(waitable&& other) noexcept;
    waitable& operator=(waitable&& other) noexcept;
    virtual ~waitable();

    void Set();
    void Reset();
    bool IsSet() const;                           // a test without waiting
    EventHandle Handle() const { return handle_; }
    // Called by a wait after the object was signalled; false sends it back to sleep.
    virtual bool confirm() { return true; }

private:
    EventHandle handle_ = kNoEvent;
    bool notOwned_ = false;
};

class aborter : public waitable {
public:
    using waitable::waitable;
};

// The calling thread's current aborter, or null.
aborter* CurrentAborter();
void SetCurrentAborter(aborter* value);

// Raises user_abort when the current aborter is set.
void CheckAbort();

// Index of the signalled object (without the aborter), or -1 on time-out or a
// failed wait. A negative limit waits for ever; 0 tests once.
int WaitAny(waitable* const* waitables, int count, double timeoutSeconds);

class AborterScope {
public:
    AborterScope() = default;
    explicit AborterScope(aborter& value) { Enter(value); }
    AborterScope(const AborterScope&) = delete;
    AborterScope& operator=(const AborterScope&) = delete;
    ~AborterScope();
    // Tests `value` first (raising user_abort when set), then makes it current.
    void Enter(aborter& value);

private:
    aborter* previous_ = nullptr;
    bool active_ = false;
};

}  // namespace Qel
