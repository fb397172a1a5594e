// The test kit on Linux: child processes with captured output; our descriptors, threads, children.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "spawn_posix.h"
#include "testkit.h"

namespace it {
namespace {

namespace fs = std::filesystem;

// Unnamed files rather than pipes: a child's output can't fill them and stall it.
struct Capture {
    std::FILE* file;
    Capture() : file(std::tmpfile()) {
        if (file == nullptr) throw std::runtime_error("no temporary file");
        ::fcntl(Fd(), F_SETFD, FD_CLOEXEC);
    }
    ~Capture() { std::fclose(file); }
    int Fd() const { return ::fileno(file); }
    std::string Text() const {
        std::string text;
        char buffer[65536];
        for (ssize_t got; (got = ::pread(Fd(), buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;)
            text.append(buffer, static_cast<size_t>(got));
        return text;
    }
};

int CountEntries(const char* folder) {
    return static_cast<int>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

// Our children: "pid (name) state ppid ..." in their stat; the name may hold blanks and brackets.
int ChildCount() {
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::string text;
        std::getline(std::ifstream(entry.path() / "stat"), text);
        const size_t close = text.rfind(')');
        int parent = -1;
        if (close != std::string::npos && std::sscanf(text.c_str() + close + 1, " %*c %d", &parent) == 1)
            count += parent == ::getpid();
    }
    return count;
}

}  // namespace

RunResult Run(const std::vector<std::string>& argv) {
    const Capture out, err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.Fd(), 1);
    posix_spawn_file_actions_adddup2(&actions, err.Fd(), 2);
    const pid_t pid = SpawnChild(argv, actions);
    const int status = pid < 0 ? -1 : ReapChild(pid);
    return {status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1, out.Text(),
            pid < 0 ? "cannot start " + argv[0] : err.Text()};
}

Resources CurrentResources() {
    return {CountEntries("/proc/self/fd"), CountEntries("/proc/self/task"), ChildCount()};
}

bool RunLockedOut(const std::string& dir, const std::string& path, const std::function<bool()>& body) {
    if (::chmod(dir.c_str(), 0755) != 0 || ::chmod(path.c_str(), 0444) != 0) return false;
    // Root may write anything: the body runs in a child that gave that up.
    const pid_t child = ::fork();
    if (child < 0) return false;
    if (child == 0) {
        if (::geteuid() == 0 && ::setuid(65534) != 0) ::_exit(3);
        ::_exit(body() ? 0 : 1);
    }
    const int status = ReapChild(child);
    return status >= 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

SinkFile::SinkFile(const std::string& path)
    : handle_(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644)) {
    if (handle_ < 0) throw std::runtime_error("cannot create " + path);
}

SinkFile::~SinkFile() { ::close(static_cast<int>(handle_)); }

}  // namespace it
