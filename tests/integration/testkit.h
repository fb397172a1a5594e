#pragma once
// What the integration tests share: a temporary folder that removes itself,
// running programs (ffmpeg, fdhost) with their output captured, the Wave64
// output of ffmpeg taken apart, and a look at the process's own resources.

#include <cstdint>
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
    int exitCode = -1;        // -1 when the program didn't end normally
    std::string out;
    std::string err;
};

// Runs argv[0] (a full path) with standard input from /dev/null.
RunResult Run(const std::vector<std::string>& argv);

// ffmpeg with the given arguments behind "-hide_banner -loglevel error -y";
// throws std::runtime_error with its error text when it fails.
void Ffmpeg(const std::vector<std::string>& args);
// fdhost with the given arguments.
RunResult Fdhost(const std::vector<std::string>& args);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);

// A Wave64 stream taken apart: the format chunk's body and the sample bytes.
struct Wave64 {
    std::string format;
    std::string data;
};
// Throws std::runtime_error when the bytes aren't a Wave64 stream.
Wave64 ParseWave64(const std::string& bytes);
// ffmpeg's own decode of `input` (with "-ss seconds" in front of "-i" when
// `seconds` isn't empty), as the plug-in asks for it.
Wave64 ReferenceDecode(const TempDir& dir, const std::string& input, const std::string& seconds = {});

uint16_t U16At(const std::string& bytes, size_t offset);
uint32_t U32At(const std::string& bytes, size_t offset);

// Counts of this process's open descriptors, threads and living children.
struct Resources {
    int descriptors = 0;
    int threads = 0;
    int children = 0;
};
Resources CurrentResources();
// Waits up to `limitMs` for the children to be gone; returns their count.
int ChildrenAfter(int limitMs);

}  // namespace it
