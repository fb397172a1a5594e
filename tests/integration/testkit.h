#pragma once
// Shared by the tests: a self-removing temporary folder, programs run with their output captured,
// ffmpeg's Wave64 output taken apart, and this process's own resources (testkit_posix/_win32.cpp).
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace it {

class TempDir {
public:
    TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir();
    const std::string& Path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }
private:
    std::string path_;
};

struct RunResult {
    int exitCode = -1;   // -1 when the program didn't end normally
    std::string out, err;
};
// Runs argv[0] (a full path) with no standard input. FfmpegOutput: ffmpeg quietly, overwriting,
// its standard output; throws with its error text.
RunResult Run(const std::vector<std::string>& argv);
std::string FfmpegOutput(std::vector<std::string> args);
void Ffmpeg(const std::vector<std::string>& args);
RunResult Fdhost(const std::vector<std::string>& args);
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);

// A Wave64 stream's format chunk body and sample bytes; ffmpeg's own decode of `input` as the
// plug-in asks for it, with "-ss seconds" when `seconds` isn't empty.
struct Wave64 { std::string format, data; };
Wave64 ReferenceDecode(const std::string& input, const std::string& seconds = {});
uint16_t U16At(const std::string& bytes, size_t offset);
uint32_t U32At(const std::string& bytes, size_t offset);

struct Resources {
    int descriptors = 0, threads = 0, children = 0;   // descriptors: handles on Windows
};
Resources CurrentResources();
// Asks `done` at once and every 5 ms for up to `limitMs`; its last answer. ChildrenAfter: the
// count of children when they are gone or the time is up.
bool WaitUntil(const std::function<bool()>& done, int limitMs);
int ChildrenAfter(int limitMs);
// Runs `body` while this process may not write `path` (in `dir`): on Linux in a child that made
// the file read-only and gave up root, on Windows while another handle denies writers.
bool RunLockedOut(const std::string& dir, const std::string& path, const std::function<bool()>& body);

// A file created empty and opened for appending, whose handle is a log sink word for the plug-in.
class SinkFile {
public:
    explicit SinkFile(const std::string& path);
    SinkFile(const SinkFile&) = delete;
    SinkFile& operator=(const SinkFile&) = delete;
    ~SinkFile();
    uint64_t Get() const { return static_cast<uint64_t>(handle_); }
private:
    intptr_t handle_;
};

}  // namespace it
