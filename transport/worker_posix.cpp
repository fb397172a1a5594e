// The worker on Linux: pipes made with pipe2, the child started with
// posix_spawn and the argument vector as given, stopped by closing the pipes
// and, after 2000 ms, killed. The child is always reaped: within another
// 2000 ms, or later by the late reaper when it hangs where even SIGKILL
// can't reach it. With a pidfd nothing is signalled or waited for by pid.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <vector>

#include "transport/childwait_posix.h"
#include "transport/event.h"
#include "transport/exceptions.h"
#include "transport/latereaper_posix.h"
#include "transport/uniquefd_posix.h"
#include "transport/worker.h"

extern char** environ;

namespace {

using Qel::UniqueFd;

constexpr int64_t kPollStepMs = 5;

[[noreturn]] void RaiseStartFailure() { throw std::runtime_error("could not start the worker process"); }

// Descriptors 0 to 2 are the child's targets; an end that landed there (the
// host had closed one of its own) is moved up so the dup2 of another
// channel can't overwrite it.
UniqueFd AboveStandard(UniqueFd fd) {
    if (fd.Get() > 2) return fd;
    UniqueFd moved(::fcntl(fd.Get(), F_DUPFD_CLOEXEC, 3));
    if (!moved.Valid()) RaiseStartFailure();
    return moved;
}

// One standard channel: the child's end (none for "inherit") and the parent's.
struct Channel {
    UniqueFd child;
    UniqueFd parent;
};

Channel MakeChannel(uint32_t mode, bool childReads) {
    Channel channel;
    if (mode == 1) return channel;
    if (mode != 2) {
        // No channel: /dev/null, so that the child's first open() can't become it.
        channel.child = UniqueFd(::open("/dev/null", (childReads ? O_RDONLY : O_WRONLY) | O_CLOEXEC));
        if (!channel.child.Valid()) RaiseStartFailure();
        channel.child = AboveStandard(std::move(channel.child));
        return channel;
    }
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe creation failure");
    UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    channel.child = AboveStandard(childReads ? std::move(readEnd) : std::move(writeEnd));
    channel.parent = childReads ? std::move(writeEnd) : std::move(readEnd);
    // The parent's end is non-blocking: its streams wait with poll, together with the aborter.
    int flags = ::fcntl(channel.parent.Get(), F_GETFL);
    if (flags < 0 || ::fcntl(channel.parent.Get(), F_SETFL, flags | O_NONBLOCK) != 0)
        throw std::runtime_error("pipe creation failure");
    return channel;
}

class SpawnActions {
public:
    SpawnActions() {
        if (::posix_spawn_file_actions_init(&actions_) != 0) RaiseStartFailure();
    }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }

    void Connect(const Channel& channel, int target) {
        if (!channel.child.Valid()) return;
        if (::posix_spawn_file_actions_adddup2(&actions_, channel.child.Get(), target) != 0)
            RaiseStartFailure();
    }
    void ChangeDirectory(const std::string& directory) {
        if (directory.empty()) return;
        if (::posix_spawn_file_actions_addchdir_np(&actions_, directory.c_str()) != 0)
            RaiseStartFailure();
    }
    const posix_spawn_file_actions_t* Get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_;
};

// The child starts with no blocked signals and with SIGPIPE at its default,
// whatever the host did to its own: a worker must end when its reader goes.
class SpawnAttributes {
public:
    SpawnAttributes() {
        if (::posix_spawnattr_init(&attributes_) != 0) RaiseStartFailure();
        sigset_t none;
        sigemptyset(&none);
        sigset_t pipeOnly;
        sigemptyset(&pipeOnly);
        sigaddset(&pipeOnly, SIGPIPE);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &pipeOnly);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
    const posix_spawnattr_t* Get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_;
};

std::vector<char*> ArgumentVector(const WorkerCommand& command) {
    std::vector<char*> argv;
    for (const std::string& arg : command.args) argv.push_back(const_cast<char*>(arg.c_str()));
    if (argv.empty()) argv.push_back(const_cast<char*>(command.exe.c_str()));
    argv.push_back(nullptr);
    return argv;
}

void ClosePipe(Qel::PipeHandle& handle) {
    if (handle == Qel::kNoPipe) return;
    ::close(static_cast<int>(handle));
    handle = Qel::kNoPipe;
}

}  // namespace

void WorkerProcess::Launch() {
    Channel input = MakeChannel(command_.stdinMode, true);
    Channel output = MakeChannel(command_.stdoutMode, false);
    Channel error = MakeChannel(command_.stderrMode, false);

    SpawnActions actions;
    actions.Connect(input, 0);
    actions.Connect(output, 1);
    actions.Connect(error, 2);
    actions.ChangeDirectory(command_.workingDirectory);
    SpawnAttributes attributes;
    std::vector<char*> argv = ArgumentVector(command_);

    // glibc reports a failed exec of the child as the result of posix_spawn.
    pid_t pid = 0;
    int result = ::posix_spawn(&pid, command_.exe.c_str(), actions.Get(), attributes.Get(), argv.data(), environ);
    if (result == ENOENT || result == ENOTDIR) throw Qel::file_not_found();
    if (result != 0) RaiseStartFailure();

    // The child's ends close here with their owners: the parent must not hold
    // a write end, or it would never see the end of the stream.
    process_ = pid;
    bool gone = false;
    pidfd_ = Qel::OpenChildPidFd(pid, gone);
    if (gone) process_ = 0;   // the host has reaped it already
    stdinStream_.handle = input.parent.Release();
    stdoutStream_.handle = output.parent.Release();
    stderrStream_.handle = error.parent.Release();
}

void WorkerProcess::ClosePipes() {
    ClosePipe(stdinStream_.handle);
    ClosePipe(stdoutStream_.handle);
    ClosePipe(stderrStream_.handle);
}

// True when the child has ended and was reaped within `limitMs`, here or by
// someone else.
bool WorkerProcess::WaitForExit(int64_t limitMs) {
    const pid_t pid = static_cast<pid_t>(process_);
    const int pidfd = static_cast<int>(pidfd_);
    const uint64_t deadline = Qel::TickCountMs() + static_cast<uint64_t>(limitMs);
    bool pidfdSaidEnded = false;
    for (;;) {
        if (Qel::ReapIfEnded(pid, pidfd)) {
            process_ = 0;
            return true;
        }
        const uint64_t now = Qel::TickCountMs();
        if (now >= deadline) return false;
        const int64_t remaining = static_cast<int64_t>(deadline - now);
        // A pidfd reads as ended before a traced child can be reaped, and
        // then polls ready at once: from there on the wait goes in steps.
        if (pidfd >= 0 && !pidfdSaidEnded) {
            pollfd fd{pidfd, POLLIN, 0};
            pidfdSaidEnded = ::poll(&fd, 1, static_cast<int>(remaining)) > 0;
            continue;
        }
        Qel::SleepMs(std::min(remaining, kPollStepMs));
    }
}

void WorkerProcess::Kill() {
    if (process_ == 0) return;
    Qel::KillChild(static_cast<pid_t>(process_), static_cast<int>(pidfd_));
}

// After the kill: a bounded wait, then the late reaper takes over.
void WorkerProcess::Reap() {
    if (process_ != 0 && !WaitForExit(kGraceMs)) {
        Qel::ReapLater(static_cast<pid_t>(process_), static_cast<int>(pidfd_));
        pidfd_ = -1;
    }
    process_ = 0;
    if (pidfd_ >= 0) ::close(static_cast<int>(pidfd_));
    pidfd_ = -1;
}
