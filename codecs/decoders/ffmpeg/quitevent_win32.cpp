// The host's named quit event: a Win32 event the host owns, opened by name
// and kept as the decoder's own duplicate.

#include <windows.h>

#include <string>

#include "codecs/decoders/ffmpeg/quitevent.h"
#include "transport/exceptions.h"

// Event names need no translation on Windows.
std::string QuitEventPath(const clString& name) { return name.ToUtf8(); }

std::optional<Qel::aborter> OpenQuitEvent(const clString& name) {
    // A name that exists already is the normal case: the host made the event.
    // No name: an unnamed event, the decoder's alone.
    const wchar_t* const named = name.Empty() ? nullptr : reinterpret_cast<const wchar_t*>(name.Text());
    ::SetLastError(0);
    const HANDLE opened = ::CreateEventW(nullptr, TRUE, FALSE, named);
    (void)::GetLastError();
    if (opened == nullptr) return std::nullopt;
    HANDLE copy = nullptr;
    const HANDLE self = ::GetCurrentProcess();
    const BOOL duplicated = ::DuplicateHandle(self, opened, self, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS);
    ::CloseHandle(opened);
    if (!duplicated) throw Qel::bug_check();
    std::optional<Qel::aborter> event;
    event.emplace(reinterpret_cast<Qel::EventHandle>(copy), true);
    return event;
}
