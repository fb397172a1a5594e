#pragma once
// Seam: platform threads. Linux: std::thread; name via pthread_setname_np.
// Priorities are the platform's numbers, larger meaning more urgent (on Linux
// the negated nice value of the thread). A new thread runs at the priority it
// is given, which is normally its creator's.

#include <functional>
#include <memory>
#include <string>

namespace Qel {

struct ThreadHandle;   // defined by the platform file
// Joins (when still running) and frees.
struct ThreadHandleDeleter {
    void operator()(ThreadHandle* handle) const;
};
using ThreadHandlePtr = std::unique_ptr<ThreadHandle, ThreadHandleDeleter>;

int CurrentThreadPriority();
// Starts `body` in a new thread at `priority`; throws bug_check on failure.
ThreadHandlePtr StartPlatformThread(std::function<void()> body, int priority);
// Joins and frees; raises the thread's priority to the caller's first when lower.
void JoinPlatformThread(ThreadHandlePtr handle);
// Names the calling thread; longer names are cut to what the platform keeps.
void NameCurrentThread(const std::string& utf8Name);

}  // namespace Qel
