#include "bench_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

extern char** environ;

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

pid_t Spawn(const std::vector<std::string>& argv, posix_spawn_file_actions_t& actions) {
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    pid_t pid = 0;
    const int failed = posix_spawn(&pid, argv[0].c_str(), &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) throw std::runtime_error("cannot start " + argv[0]);
    return pid;
}

int Reap(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
    }
    return status;
}

}  // namespace

double TimeRun(const std::vector<std::string>& argv, const std::string& stdoutPath) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, stdoutPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const auto start = Clock::now();
    const int status = Reap(Spawn(argv, actions));
    const double seconds = Since(start);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(argv[0] + " failed");
    return seconds;
}

double TimeFirstByte(const std::vector<std::string>& argv) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const auto start = Clock::now();
    const pid_t pid = Spawn(argv, actions);
    ::close(fds[1]);
    pollfd ready{fds[0], POLLIN, 0};
    ::poll(&ready, 1, 10000);
    const double seconds = Since(start);
    ::kill(pid, SIGKILL);
    Reap(pid);
    ::close(fds[0]);
    return seconds;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

}  // namespace bench
