#pragma once
// Seam: platform threads. Linux: pthread; name via pthread_setname_np.

#include <functional>
#include <string>

namespace Qel {

struct ThreadHandle;   // defined by the platform file
int CurrentThreadPriority();
// Starts `body` in a new thread at `priority`; throws bug_check on failure.
ThreadHandle* StartPlatformThread(std::function<void()> body, int priority);
// Joins and frees; raises the thread's priority to the caller's first when lower.
void JoinPlatformThread(ThreadHandle* handle);
void NameCurrentThread(const std::string& utf8Name);

}  // namespace Qel
