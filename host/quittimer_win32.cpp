// The quit event as a named Win32 event, under a name no other run uses.

#include <windows.h>

#include <atomic>
#include <string>

#include "host/errors.h"
#include "host/quittimer.h"
#include "host/text.h"

namespace host {
namespace {

// The event that Ctrl-C sets; the console calls the handler on a thread of
// its own, which reaches nothing but what is global.
std::atomic<HANDLE> interruptEvent{nullptr};

BOOL WINAPI SetOnInterrupt(DWORD /*type*/) {
    const HANDLE event = interruptEvent.load();
    if (event == nullptr) return FALSE;
    ::SetEvent(event);
    return TRUE;
}

}  // namespace

void QuitTimer::CatchInterrupt() {
    interruptEvent.store(reinterpret_cast<HANDLE>(handle_));
    ::SetConsoleCtrlHandler(SetOnInterrupt, TRUE);
}

void QuitTimer::ReleaseInterrupt() {
    ::SetConsoleCtrlHandler(SetOnInterrupt, FALSE);
    interruptEvent.store(nullptr);
}

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
