// Threads on Windows: the runtime's thread start (_beginthreadex), created
// suspended so that the priority is set before the body runs. The name goes
// to SetThreadDescription, which older systems lack: it is looked up at run
// time and simply not called when missing.

#include <windows.h>
#include <process.h>

#include <memory>
#include <utility>

#include "support/textcodec.h"
#include "transport/exceptions.h"
#include "transport/threadhandle.h"

namespace Qel {

// The start record lives here, so it outlives the thread: the handle is
// freed only after the join.
struct ThreadHandle {
    std::function<void()> body;
    HANDLE thread = nullptr;
};

namespace {

unsigned __stdcall RunPlatformThread(void* record) {
    auto* handle = static_cast<ThreadHandle*>(record);
    try {
        handle->body();
    } catch (...) {
        // The portable layer swallows everything already; this only keeps a
        // stray exception from ending the process.
    }
    return 0;
}

using SetThreadDescriptionFn = HRESULT(WINAPI*)(HANDLE, PCWSTR);

SetThreadDescriptionFn FindSetThreadDescription() {
    for (const wchar_t* module : {L"KernelBase.dll", L"kernel32.dll"}) {
        const HMODULE library = ::GetModuleHandleW(module);
        if (library == nullptr) continue;
        const FARPROC found = ::GetProcAddress(library, "SetThreadDescription");
        if (found != nullptr) return reinterpret_cast<SetThreadDescriptionFn>(reinterpret_cast<void*>(found));
    }
    return nullptr;
}

}  // namespace

void ThreadHandleDeleter::operator()(ThreadHandle* handle) const {
    std::unique_ptr<ThreadHandle> owned(handle);
    if (owned->thread == nullptr) return;
    ::WaitForSingleObject(owned->thread, INFINITE);
    ::CloseHandle(owned->thread);
}

int CurrentThreadPriority() { return ::GetThreadPriority(::GetCurrentThread()); }

ThreadHandlePtr StartPlatformThread(std::function<void()> body, int priority) {
    auto record = std::make_unique<ThreadHandle>();
    record->body = std::move(body);
    ThreadHandlePtr handle(record.release());
    const uintptr_t started = ::_beginthreadex(nullptr, 0, &RunPlatformThread, handle.get(), CREATE_SUSPENDED, nullptr);
    if (started == 0) throw bug_check();
    handle->thread = reinterpret_cast<HANDLE>(started);
    ::SetThreadPriority(handle->thread, priority);
    ::ResumeThread(handle->thread);
    return handle;
}

void JoinPlatformThread(ThreadHandlePtr handle) {
    if (!handle || handle->thread == nullptr) return;
    // A low-priority thread must not hold up a higher one that waits for it.
    const int mine = CurrentThreadPriority();
    if (::GetThreadPriority(handle->thread) < mine) ::SetThreadPriority(handle->thread, mine);
    handle.reset();
}

void NameCurrentThread(const std::string& utf8Name) {
    static const SetThreadDescriptionFn setDescription = FindSetThreadDescription();
    if (setDescription == nullptr) return;
    const std::u16string wide = text::Utf8ToUtf16(utf8Name);
    setDescription(::GetCurrentThread(), reinterpret_cast<const wchar_t*>(wide.c_str()));
}

}  // namespace Qel
