// ID3v2 tag reading: a file with a 10 MB tag (one large cover) against a file
// with a small tag at 1 MB and 1.5 GB. The second time must not grow with the
// file, since reading stops at the tag's declared end. The large files are
// sparse, so they cost no disk.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/clFile.h"
#include "tags/id3v2/tagid3v2.h"

namespace {

std::string BigEndian(uint32_t value) {
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
            static_cast<char>(value)};
}

std::string Synchsafe(uint32_t value) {
    return {static_cast<char>((value >> 21) & 0x7F), static_cast<char>((value >> 14) & 0x7F),
            static_cast<char>((value >> 7) & 0x7F), static_cast<char>(value & 0x7F)};
}

std::string Frame(const std::string& id, const std::string& body) {
    return id + BigEndian(static_cast<uint32_t>(body.size())) + std::string(2, '\0') + body;
}

// A 2.3 tag with a few text frames and a cover of `coverBytes`.
std::string TagBytes(uint32_t coverBytes) {
    std::string cover(coverBytes, '\0');
    uint32_t x = 12345;
    for (char& c : cover) {
        x = x * 1103515245u + 12345u;
        c = static_cast<char>(x >> 24);
    }
    std::string frames = Frame("TIT2", std::string("\0Benchmark", 10)) + Frame("TPE1", std::string("\0A/B", 4)) +
                         Frame("TALB", std::string("\0Album", 6)) + Frame("TCON", std::string("\0(17)", 5));
    if (coverBytes != 0) frames += Frame("APIC", std::string("\0image/jpeg\0\x03\0", 14) + cover);
    return std::string("ID3\x03\0\0", 6) + Synchsafe(static_cast<uint32_t>(frames.size())) + frames;
}

void ReadTags(benchmark::State& state, uint32_t coverBytes) {
    const int64_t size = state.range(0);
    const std::string path =
        (std::filesystem::temp_directory_path() / ("fd-id3bench-" + std::to_string(::getpid()) + ".tak")).string();
    {
        std::ofstream create(path, std::ios::binary);
        create << TagBytes(coverBytes);
    }
    std::filesystem::resize_file(path, static_cast<uintmax_t>(size));   // sparse audio behind the tag
    clFile file(clString::FromUtf8(path));
    if (!file.Open(clFile::kRead)) state.SkipWithError("cannot open the file");
    for (auto _ : state) {
        TagID3v2 tag(file);
        IDTags tags;
        if (!tag.Read(tags, true) || tags.Count() < 5) state.SkipWithError("the read failed");
        benchmark::DoNotOptimize(tags);
    }
    file.Close();
    std::filesystem::remove(path);
}

void ReadLargeTag(benchmark::State& state) { ReadTags(state, 10u << 20); }
void ReadSmallTag(benchmark::State& state) { ReadTags(state, 0); }

}  // namespace

BENCHMARK(ReadLargeTag)->Arg(int64_t{11} << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadSmallTag)->Arg(int64_t{1} << 20)->Arg(int64_t{3} << 29)->Unit(benchmark::kMicrosecond);
