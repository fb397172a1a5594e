#pragma once
// A child of this process that takes a given free pid and only sleeps: an
// unrelated process with a recycled pid, as the plug-in's host may have beside
// its workers. clone3 with set_tid needs CAP_SYS_ADMIN or CAP_CHECKPOINT_RESTORE.

#include <linux/sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>

// The child's pid (equal to `pid`), or -1 when the system refuses.
inline pid_t StartChildWithPid(pid_t pid) {
    pid_t wanted[1] = {pid};
    clone_args args{};
    args.exit_signal = SIGCHLD;
    args.set_tid = reinterpret_cast<uintptr_t>(wanted);
    args.set_tid_size = 1;
    const long result = ::syscall(SYS_clone3, &args, sizeof args);
    if (result == 0) for (;;) ::syscall(SYS_pause);   // a copy of a threaded process: system calls only
    return result < 0 ? -1 : static_cast<pid_t>(result);
}

// True while `pid` is a child of ours that runs: not killed, not reaped.
inline bool ChildRuns(pid_t pid) {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

inline void EndChild(pid_t pid) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}
