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

// A child's standard streams: input from `in` (or /dev/null), output to
// `out` (or to the file `outPath`, or /dev/null), errors to /dev/null. For
// one child: starting it uses the actions up.
class Streams {
public:
    Streams(int in, int out, const std::string& outPath = "/dev/null") {
        posix_spawn_file_actions_init(&actions_);
        if (in >= 0) posix_spawn_file_actions_adddup2(&actions_, in, 0);
        else posix_spawn_file_actions_addopen(&actions_, 0, "/dev/null", O_RDONLY, 0);
        if (out >= 0) posix_spawn_file_actions_adddup2(&actions_, out, 1);
        else posix_spawn_file_actions_addopen(&actions_, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions_, 2, "/dev/null", O_WRONLY, 0);
    }
    Streams(const Streams&) = delete;
    Streams& operator=(const Streams&) = delete;
    ~Streams() {
        if (!spawned_) posix_spawn_file_actions_destroy(&actions_);
    }

    pid_t Spawn(const std::vector<std::string>& argv) {
        spawned_ = true;
        const pid_t pid = it::SpawnChild(argv, actions_);
        if (pid < 0) throw std::runtime_error("cannot start " + argv[0]);
        return pid;
    }

private:
    posix_spawn_file_actions_t actions_;
    bool spawned_ = false;
};

}  // namespace

double TimeRun(const std::vector<std::string>& argv, const std::string& stdoutPath) {
    Streams streams(-1, -1, stdoutPath);
    const auto start = Clock::now();
    const int status = it::ReapChild(streams.Spawn(argv));
    const double seconds = Since(start);
    if (status < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(argv[0] + " failed");
    return seconds;
}

double TimePipeline(const std::vector<std::string>& writer, const std::vector<std::string>& reader) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    Streams writes(-1, fds[1]);
    Streams reads(fds[0], -1);
    const auto start = Clock::now();
    const pid_t first = writes.Spawn(writer);
    const pid_t second = reads.Spawn(reader);
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
    Streams streams(-1, fds[1]);
    const auto start = Clock::now();
    const pid_t pid = streams.Spawn(argv);
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
