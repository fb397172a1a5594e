#include "bench_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "tests/integration/spawn_posix.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

pid_t Spawn(const std::vector<std::string>& argv, posix_spawn_file_actions_t& actions) {
    const pid_t pid = it::SpawnChild(argv, actions);
    if (pid < 0) throw std::runtime_error("cannot start " + argv[0]);
    return pid;
}

}  // namespace

double TimeRun(const std::vector<std::string>& argv, const std::string& stdoutPath) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, stdoutPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const auto start = Clock::now();
    const int status = it::ReapChild(Spawn(argv, actions));
    const double seconds = Since(start);
    if (status < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(argv[0] + " failed");
    return seconds;
}

double TimePipeline(const std::vector<std::string>& writer, const std::vector<std::string>& reader) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t writes;
    posix_spawn_file_actions_init(&writes);
    posix_spawn_file_actions_addopen(&writes, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&writes, fds[1], 1);
    posix_spawn_file_actions_addopen(&writes, 2, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_t reads;
    posix_spawn_file_actions_init(&reads);
    posix_spawn_file_actions_adddup2(&reads, fds[0], 0);
    posix_spawn_file_actions_addopen(&reads, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&reads, 2, "/dev/null", O_WRONLY, 0);
    const auto start = Clock::now();
    const pid_t first = Spawn(writer, writes);
    const pid_t second = Spawn(reader, reads);
    ::close(fds[0]);
    ::close(fds[1]);
    const int writerStatus = it::ReapChild(first);
    const int readerStatus = it::ReapChild(second);
    const double seconds = Since(start);
    for (const int status : {writerStatus, readerStatus}) {
        if (status < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("pipeline failed");
    }
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
    it::ReapChild(pid);
    ::close(fds[0]);
    return seconds;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

}  // namespace bench
