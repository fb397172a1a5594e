// Events are Win32 manual-reset events; a wait for several is one
// WaitForMultipleObjects.

#include <windows.h>

#include <cstdint>

#include "transport/event.h"
#include "transport/exceptions.h"

namespace Qel {
namespace {

HANDLE Win(EventHandle handle) { return reinterpret_cast<HANDLE>(handle); }

// Waits longer than the call's limit (just under INFINITE) are made of several.
DWORD SliceMs(int64_t remainingMs) {
    if (remainingMs < 0) return INFINITE;
    return remainingMs >= INFINITE ? INFINITE - 1 : static_cast<DWORD>(remainingMs);
}

}  // namespace

EventHandle CreateEventObject() {
    const HANDLE handle = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (handle == nullptr) throw bug_check();
    return reinterpret_cast<EventHandle>(handle);
}

void CloseEventObject(EventHandle handle) {
    if (handle != kNoEvent && handle != 0) ::CloseHandle(Win(handle));
}

void SetEventObject(EventHandle handle) { ::SetEvent(Win(handle)); }

void ResetEventObject(EventHandle handle) { ::ResetEvent(Win(handle)); }

bool IsEventObjectSet(EventHandle handle) { return ::WaitForSingleObject(Win(handle), 0) == WAIT_OBJECT_0; }

int WaitForAnyEvent(const EventHandle* handles, int count, int64_t timeoutMs) {
    if (count <= 0 || count > MAXIMUM_WAIT_OBJECTS) return -1;
    HANDLE waited[MAXIMUM_WAIT_OBJECTS];
    for (int i = 0; i < count; ++i) waited[i] = Win(handles[i]);
    const uint64_t start = TickCountMs();
    for (;;) {
        int64_t remaining = timeoutMs;
        if (timeoutMs >= 0) {
            const int64_t elapsed = static_cast<int64_t>(TickCountMs() - start);
            remaining = elapsed >= timeoutMs ? 0 : timeoutMs - elapsed;
        }
        const DWORD slice = SliceMs(remaining);
        const DWORD result = ::WaitForMultipleObjects(static_cast<DWORD>(count), waited, FALSE, slice);
        if (result < WAIT_OBJECT_0 + static_cast<DWORD>(count)) return static_cast<int>(result - WAIT_OBJECT_0);
        if (result != WAIT_TIMEOUT) return -1;
        if (remaining >= 0 && static_cast<int64_t>(slice) == remaining) return -1;
    }
}

void SleepMs(int64_t ms) {
    while (ms > 0) {
        const DWORD slice = SliceMs(ms);
        ::Sleep(slice);
        ms -= slice;
    }
}

uint64_t TickCountMs() { return ::GetTickCount64(); }

}  // namespace Qel
