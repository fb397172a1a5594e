#pragma once
// Workers that outlived their bounded stop. A process in uninterruptible
// sleep (a hung network file) ends on SIGKILL only when it wakes, and the
// stop can't wait for that. Such a worker is handed over here; one thread
// reaps each when it ends, so that none is left a zombie. The thread exists
// only while there is a worker to wait for, and the library's unloading ends
// it (what it still waits for is then left to the host).

#include <sys/types.h>

#include <cstddef>

namespace Qel {

// Takes over the child `pid` and its pidfd (-1: none, looked at by pid); the
// pidfd is closed once the child is reaped.
void ReapLater(pid_t pid, int pidfd);
// Workers handed over and not reaped yet.
size_t WorkersLeftToReap();

}  // namespace Qel
