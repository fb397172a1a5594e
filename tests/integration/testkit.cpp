#include "testkit.h"

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

int CountChildren() {
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

}  // namespace

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
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    pid_t pid = 0;
    const int failed = posix_spawn(&pid, argv[0].c_str(), &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    while (failed == 0 && ::waitpid(pid, &status, 0) < 0) {
    }
    RunResult result;
    result.exitCode = failed == 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = TextOf(out);
    result.err = TextOf(err);
    if (failed != 0) result.err = "cannot start " + argv[0];
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
    for (size_t pos = 40; bytes.size() - pos >= 24;) {
        const uint64_t size = U32At(bytes, pos + 16) | uint64_t{U32At(bytes, pos + 20)} << 32;
        if (size < 24) throw std::runtime_error("Wave64 chunk size below 24");
        // On a pipe the data size is a placeholder: the data runs to the end.
        if (bytes.compare(pos, 4, "data") == 0) {
            result.data = bytes.substr(pos + 24, size - 24);
            return result;
        }
        if (size - 24 > bytes.size() - pos - 24) throw std::runtime_error("Wave64 chunk past the end");
        if (bytes.compare(pos, 4, "fmt ") == 0) result.format = bytes.substr(pos + 24, size - 24);
        pos += (size + 7) / 8 * 8;
    }
    throw std::runtime_error("Wave64 stream without data");
}

Wave64 ReferenceDecode(const std::string& input, const std::string& seconds) {
    // To a pipe, as the plug-in reads it: to a file, ffmpeg counts the
    // chunk's padding into the data size.
    std::vector<std::string> argv = {FD_FFMPEG_PATH, "-hide_banner", "-loglevel", "error", "-nostdin"};
    if (!seconds.empty()) argv.insert(argv.end(), {"-ss", seconds});
    argv.insert(argv.end(), {"-i", input, "-f", "w64", "-"});
    const RunResult result = Run(argv);
    if (result.exitCode != 0) throw std::runtime_error("ffmpeg failed: " + result.err);
    return ParseWave64(result.out);
}

Resources CurrentResources() {
    return {CountEntries("/proc/self/fd"), CountEntries("/proc/self/task"), CountChildren()};
}

int ChildrenAfter(int limitMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    int children = CountChildren();
    for (; children > 0 && std::chrono::steady_clock::now() < end; children = CountChildren()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return children;
}

}  // namespace it
