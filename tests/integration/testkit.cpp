#include "testkit.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <thread>

namespace it {

namespace fs = std::filesystem;

TempDir::TempDir() {
    std::random_device random;
    for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
        const fs::path candidate = fs::temp_directory_path() / ("fd-it-" + std::to_string(random()));
        if (!fs::create_directory(candidate)) continue;
        const std::u8string utf8 = candidate.u8string();
        path_.assign(utf8.begin(), utf8.end());
    }
    if (path_.empty()) throw std::runtime_error("cannot make a temporary folder");
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(fs::path(std::u8string(path_.begin(), path_.end())), ignored);
}

std::string FfmpegOutput(std::vector<std::string> args) {
    args.insert(args.begin(), {FD_FFMPEG_PATH, "-hide_banner", "-loglevel", "error", "-nostdin", "-y"});
    const RunResult result = Run(args);
    if (result.exitCode != 0) throw std::runtime_error("ffmpeg failed: " + result.err);
    return result.out;
}

void Ffmpeg(const std::vector<std::string>& args) { FfmpegOutput(args); }

RunResult Fdhost(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {FD_HOST_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    return Run(argv);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

uint16_t U16At(const std::string& bytes, size_t offset) {
    return static_cast<uint16_t>(static_cast<uint8_t>(bytes.at(offset)) | static_cast<uint8_t>(bytes.at(offset + 1)) << 8);
}

uint32_t U32At(const std::string& bytes, size_t offset) {
    return uint32_t{U16At(bytes, offset)} | uint32_t{U16At(bytes, offset + 2)} << 16;
}

static Wave64 ParseWave64(const std::string& bytes) {   // throws when malformed
    if (bytes.size() < 40 || bytes.compare(0, 4, "riff") != 0 || bytes.compare(24, 4, "wave") != 0)
        throw std::runtime_error("not a Wave64 stream");
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
    // To a pipe, as the plug-in reads it: to a file, ffmpeg counts the chunk's padding into the data size.
    std::vector<std::string> args = {"-i", input, "-f", "w64", "-"};
    if (!seconds.empty()) args.insert(args.begin(), {"-ss", seconds});
    return ParseWave64(FfmpegOutput(args));
}

bool WaitUntil(const std::function<bool()>& done, int limitMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    for (;; std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
    }
}

int ChildrenAfter(int limitMs) {
    int children = 0;
    WaitUntil([&children] { return (children = CurrentResources().children) == 0; }, limitMs);
    return children;
}

}  // namespace it
