#include "testkit.h"

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace it {
namespace {

// An unnamed file that collects one stream of a child.
class Capture {
public:
    Capture() : file_(std::tmpfile()) {
        if (file_ == nullptr) throw std::runtime_error("no temporary file");
        ::fcntl(::fileno(file_), F_SETFD, FD_CLOEXEC);
    }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;
    ~Capture() { std::fclose(file_); }

    int Fd() const { return ::fileno(file_); }
    std::string Text() const {
        std::string text;
        ::lseek(Fd(), 0, SEEK_SET);
        char buffer[65536];
        for (ssize_t got; (got = ::read(Fd(), buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(got));
        return text;
    }

private:
    std::FILE* file_;
};

uint64_t U64At(const std::string& bytes, size_t offset) {
    return uint64_t{U32At(bytes, offset)} | uint64_t{U32At(bytes, offset + 4)} << 32;
}

int ParentOf(const std::string& statText) {
    // "pid (name) state ppid ...": the name may hold blanks and brackets.
    const size_t close = statText.rfind(')');
    if (close == std::string::npos) return -1;
    std::istringstream rest(statText.substr(close + 1));
    std::string state;
    int parent = -1;
    rest >> state >> parent;
    return parent;
}

int CountEntries(const char* folder) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        (void)entry;
        ++count;
    }
    return count;
}

int CountChildren() {
    const int self = static_cast<int>(::getpid());
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::ifstream stat(entry.path() / "stat");
        std::string text;
        std::getline(stat, text);
        if (ParentOf(text) == self) ++count;
    }
    return count;
}

}  // namespace

TempDir::TempDir() {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/fd-it-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

RunResult Run(const std::vector<std::string>& argv) {
    Capture out;
    Capture err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.Fd(), 1);
    posix_spawn_file_actions_adddup2(&actions, err.Fd(), 2);
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    pid_t pid = 0;
    const int failed = posix_spawn(&pid, argv[0].c_str(), &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    RunResult result;
    if (failed != 0) {
        result.err = "cannot start " + argv[0];
        return result;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = out.Text();
    result.err = err.Text();
    return result;
}

void Ffmpeg(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {FD_FFMPEG_PATH, "-hide_banner", "-loglevel", "error", "-nostdin", "-y"};
    argv.insert(argv.end(), args.begin(), args.end());
    const RunResult result = Run(argv);
    if (result.exitCode != 0) throw std::runtime_error("ffmpeg failed: " + result.err);
}

RunResult Fdhost(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {FD_HOST_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    return Run(argv);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

uint16_t U16At(const std::string& bytes, size_t offset) {
    return static_cast<uint16_t>(static_cast<uint8_t>(bytes.at(offset)) |
                                 static_cast<uint8_t>(bytes.at(offset + 1)) << 8);
}

uint32_t U32At(const std::string& bytes, size_t offset) {
    return uint32_t{U16At(bytes, offset)} | uint32_t{U16At(bytes, offset + 2)} << 16;
}

Wave64 ParseWave64(const std::string& bytes) {
    if (bytes.size() < 40 || bytes.compare(0, 4, "riff") != 0 || bytes.compare(24, 4, "wave") != 0) {
        throw std::runtime_error("not a Wave64 stream");
    }
    Wave64 result;
    size_t pos = 40;
    while (bytes.size() - pos >= 24) {
        const std::string name = bytes.substr(pos, 4);
        const uint64_t size = U64At(bytes, pos + 16);
        if (size < 24) throw std::runtime_error("Wave64 chunk size below 24");
        if (name == "data") {
            // On a pipe the size is a placeholder: the data runs to the end.
            result.data = bytes.substr(pos + 24, size - 24);
            return result;
        }
        if (size - 24 > bytes.size() - pos - 24) throw std::runtime_error("Wave64 chunk past the end");
        if (name == "fmt ") result.format = bytes.substr(pos + 24, size - 24);
        pos += (size + 7) / 8 * 8;
    }
    throw std::runtime_error("Wave64 stream without data");
}

Wave64 ReferenceDecode(const TempDir& dir, const std::string& input, const std::string& seconds) {
    (void)dir;
    // To a pipe, as the plug-in reads it: written to a file, ffmpeg counts
    // the chunk's padding into the data size.
    std::vector<std::string> argv = {FD_FFMPEG_PATH, "-hide_banner", "-loglevel", "error", "-nostdin"};
    if (!seconds.empty()) argv.insert(argv.end(), {"-ss", seconds});
    argv.insert(argv.end(), {"-i", input, "-f", "w64", "-"});
    const RunResult result = Run(argv);
    if (result.exitCode != 0) throw std::runtime_error("ffmpeg failed: " + result.err);
    return ParseWave64(result.out);
}

Resources CurrentResources() {
    Resources now;
    now.descriptors = CountEntries("/proc/self/fd");
    now.threads = CountEntries("/proc/self/task");
    now.children = CountChildren();
    return now;
}

int ChildrenAfter(int limitMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    int children = CountChildren();
    while (children > 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        children = CountChildren();
    }
    return children;
}

}  // namespace it
