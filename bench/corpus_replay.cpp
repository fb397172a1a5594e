// Runs a fuzz target's entry point once over every file it is given (folders
// are walked), without sanitizers, and prints the process's peak resident
// memory: hostile files must cost bounded memory whatever size they declare.

#include <sys/resource.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<uint8_t> Contents(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

size_t Replay(const std::filesystem::path& path) {
    std::vector<uint8_t> bytes = Contents(path);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return bytes.size();
}

}  // namespace

int main(int argc, char** argv) {
    size_t files = 0;
    size_t largest = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path root(argv[i]);
        std::error_code error;
        if (!std::filesystem::is_directory(root, error)) {
            largest = std::max(largest, Replay(root));
            ++files;
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root, error)) {
            if (!entry.is_regular_file()) continue;
            largest = std::max(largest, Replay(entry.path()));
            ++files;
        }
    }
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    std::printf("%zu files, largest %zu bytes, peak RSS %.1f MB\n", files, largest,
                static_cast<double>(usage.ru_maxrss) / 1024.0);
    return 0;
}
