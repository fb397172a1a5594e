// The quit event as a named Win32 event, under a name no other run uses.

#include <windows.h>

#include <string>

#include "host/errors.h"
#include "host/quittimer.h"
#include "host/text.h"

namespace host {

void QuitTimer::MakeEvent() {
    name_ = "fdhost-quit-" + std::to_string(::GetCurrentProcessId()) + "-" +
            std::to_string(reinterpret_cast<uintptr_t>(this)) + "-" + std::to_string(::GetTickCount64());
    const std::u16string wide = Utf8ToUtf16(name_);
    const HANDLE event = ::CreateEventW(nullptr, TRUE, FALSE, reinterpret_cast<const wchar_t*>(wide.c_str()));
    if (event == nullptr) {
        throw HostError("cannot make the quit event " + name_ + ": Windows error " + std::to_string(::GetLastError()));
    }
    handle_ = reinterpret_cast<intptr_t>(event);
}

void QuitTimer::SignalEvent() { ::SetEvent(reinterpret_cast<HANDLE>(handle_)); }

void QuitTimer::RemoveEvent() { ::CloseHandle(reinterpret_cast<HANDLE>(handle_)); }

}  // namespace host
