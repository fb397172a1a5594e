#include "support/logsink.h"

#include <windows.h>

namespace logsink {

bool IsNone(uint64_t sink) { return sink == 0 || sink == UINT64_MAX; }

void Write(uint64_t sink, const void* bytes, size_t count) {
    if (IsNone(sink)) return;
    const HANDLE handle = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(sink));
    const auto* next = static_cast<const char*>(bytes);
    // The last error belongs to the caller's error path (OpenErrorText may follow).
    const DWORD savedError = ::GetLastError();
    while (count > 0) {
        const DWORD piece = count > 0x40000000u ? 0x40000000u : static_cast<DWORD>(count);
        DWORD written = 0;
        if (!::WriteFile(handle, next, piece, &written, nullptr) || written == 0) break;
        next += written;
        count -= written;
    }
    ::SetLastError(savedError);
}

}  // namespace logsink
