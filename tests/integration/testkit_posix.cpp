// The test kit's system part on Linux: temporary folders, child processes
// with captured output, and this process's descriptors, threads and children.

#include "testkit.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "spawn_posix.h"

namespace it {
namespace {

namespace fs = std::filesystem;

// Unnamed files rather than pipes: a child's output can't fill them and stall it.
std::FILE* CaptureFile() {
    std::FILE* file = std::tmpfile();
    if (file == nullptr) throw std::runtime_error("no temporary file");
    ::fcntl(::fileno(file), F_SETFD, FD_CLOEXEC);
    return file;
}

std::string TextOf(std::FILE* file) {
    std::string text;
    char buffer[65536];
    for (off_t at = 0;;) {
        const ssize_t got = ::pread(::fileno(file), buffer, sizeof buffer, at);
        if (got <= 0) break;
        text.append(buffer, static_cast<size_t>(got));
        at += got;
    }
    std::fclose(file);
    return text;
}

int CountEntries(const char* folder) {
    return static_cast<int>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

}  // namespace

int ChildCount() {
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        if (entry.path().filename().string().find_first_not_of("0123456789") != std::string::npos) continue;
        std::ifstream stat(entry.path() / "stat");
        std::string text;
        std::getline(stat, text);
        // "pid (name) state ppid ...": the name may hold blanks and brackets.
        const size_t close = text.rfind(')');
        if (close == std::string::npos) continue;
        std::istringstream rest(text.substr(close + 1));
        std::string state;
        int parent = -1;
        rest >> state >> parent;
        count += parent == ::getpid();
    }
    return count;
}

TempDir::TempDir() {
    std::string pattern = fs::temp_directory_path().string() + "/fd-it-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

RunResult Run(const std::vector<std::string>& argv) {
    std::FILE* out = CaptureFile();
    std::FILE* err = CaptureFile();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ::fileno(out), 1);
    posix_spawn_file_actions_adddup2(&actions, ::fileno(err), 2);
    const pid_t pid = SpawnChild(argv, actions);
    const int status = pid < 0 ? -1 : ReapChild(pid);
    RunResult result;
    result.exitCode = status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = TextOf(out);
    result.err = TextOf(err);
    if (pid < 0) result.err = "cannot start " + argv[0];
    return result;
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

uint64_t SinkFile::Get() const { return static_cast<uint64_t>(handle_); }

}  // namespace it
