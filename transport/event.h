#pragma once
// Seam: a manual-reset event that can be waited on together with I/O.
// Linux: an eventfd (set = write, reset = drain, test = poll 0).

#include <cstdint>

namespace Qel {

using EventHandle = intptr_t;
constexpr EventHandle kNoEvent = -1;

EventHandle CreateEventObject();                 // manual reset, not signalled; throws bug_check
void CloseEventObject(EventHandle handle);
void SetEventObject(EventHandle handle);
void ResetEventObject(EventHandle handle);
bool IsEventObjectSet(EventHandle handle);
// Waits for any of `handles` for at most `timeoutMs` (negative: for ever).
// Returns the index of one that is signalled, or -1 on time-out or failure.
int WaitForAnyEvent(const EventHandle* handles, int count, int64_t timeoutMs);
void SleepMs(int64_t ms);
uint64_t TickCountMs();                          // monotonic

}  // namespace Qel
