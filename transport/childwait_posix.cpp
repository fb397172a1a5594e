// pidfd_open, pidfd_send_signal and waitid(P_PIDFD), with the pid as the
// fallback of kernels before 5.4.

#include "transport/childwait_posix.h"

#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace Qel {
namespace {

// waitid by pidfd; the result of the call, with si_pid 0 while nothing ended.
int WaitIdPidFd(int pidfd, siginfo_t& info, int options) {
    int result = 0;
    do {
        info = siginfo_t{};
        result = ::waitid(P_PIDFD, static_cast<id_t>(pidfd), &info, options);
    } while (result != 0 && errno == EINTR);
    return result;
}

}  // namespace

int OpenChildPidFd(pid_t pid, bool& gone) {
    gone = false;
#ifdef SYS_pidfd_open
    // Always close-on-exec.
    const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (pidfd < 0) {
        gone = errno == ESRCH;
        return -1;
    }
    // A look that leaves the child as it is: EINVAL is a kernel without
    // P_PIDFD (5.3), ECHILD a pid that is no longer our child's.
    siginfo_t info;
    if (WaitIdPidFd(pidfd, info, WEXITED | WNOHANG | WNOWAIT) != 0) {
        gone = errno == ECHILD;
        ::close(pidfd);
        return -1;
    }
    return pidfd;
#else
    (void)pid;
    return -1;
#endif
}

bool ReapIfEnded(pid_t pid, int pidfd) {
    if (pidfd >= 0) {
        siginfo_t info;
        if (WaitIdPidFd(pidfd, info, WEXITED | WNOHANG) == 0) return info.si_pid != 0;
        return errno == ECHILD;   // reaped by someone else: nothing left to wait for
    }
    for (;;) {
        const pid_t done = ::waitpid(pid, nullptr, WNOHANG);
        if (done == pid) return true;
        if (done == 0) return false;
        if (errno != EINTR) return errno == ECHILD;
    }
}

void KillChild(pid_t pid, int pidfd) {
    if (pidfd < 0) {
        ::kill(pid, SIGKILL);
        return;
    }
#ifdef SYS_pidfd_send_signal
    // ESRCH: it has ended already; the pid is never tried instead.
    ::syscall(SYS_pidfd_send_signal, pidfd, SIGKILL, nullptr, 0);
#endif
}

}  // namespace Qel
