#pragma once
// Waiting for and signalling one child process. With a pidfd nothing goes by
// the bare pid: once a child has been reaped (by the host too, which may
// reap all children or ignore SIGCHLD), its pid may belong to another
// process, which must never be signalled or reaped in its place.

#include <sys/types.h>

namespace Qel {

// A pidfd for the child `pid` that can both signal and wait (waitid with
// P_PIDFD); -1 when the kernel lacks either. `gone` is set when the child
// was already reaped by someone else.
int OpenChildPidFd(pid_t pid, bool& gone);
// One look without waiting: true when the child has ended and is reaped now,
// or was reaped by someone else.
bool ReapIfEnded(pid_t pid, int pidfd);
// SIGKILL through the pidfd; by pid only where there is none.
void KillChild(pid_t pid, int pidfd);

}  // namespace Qel
