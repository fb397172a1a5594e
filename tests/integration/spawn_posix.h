#pragma once
// Starting and reaping a child on Linux, shared by the test kit and the
// benchmarks: argv[0] is a full path, `actions` arrange its descriptors.

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <string>
#include <vector>

extern char** environ;

namespace it {

// Starts the child and destroys `actions`; the pid, or -1 when it could not start.
inline pid_t SpawnChild(const std::vector<std::string>& argv, posix_spawn_file_actions_t& actions) {
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    pid_t pid = 0;
    const int failed = posix_spawn(&pid, argv[0].c_str(), &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failed == 0 ? pid : -1;
}

// Waits for the child to end; its wait status, or -1 when there is no such child.
inline int ReapChild(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return -1;
    return status;
}

}  // namespace it
