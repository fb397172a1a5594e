// Writing a title and a 300 KB cover into the APE tag at the end of a file
// costs the same for a 1 MB and a 1 GB file: the flow touches only the tail.
// The files are sparse, so the big one costs no disk. Besides the time, each
// run reports the bytes read and written per write, from /proc/self/io.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/benchio.h"
#include "tags/idtags.h"
#include "tags/stdtags.h"

namespace {

constexpr uint32_t kCoverBytes = 300 * 1024;


IDTags TitleAndCover() {
    const std::string cover = benchio::CoverBytes(kCoverBytes, "\xFF\xD8\xFF\xE0");
    IDTags tags;
    tags.Add(clString(u"Title"), clString(u"Benchmark"));
    tags.AddBinary(clString(u"_albumart_1_Front Album Cover"), cover.data(), kCoverBytes);
    return tags;
}

void WriteTitleAndCover(benchmark::State& state) {
    const int64_t size = state.range(0);
    const std::string path =
        (std::filesystem::temp_directory_path() / ("fd-tagbench-" + std::to_string(::getpid()) + ".tak")).string();
    { std::ofstream create(path, std::ios::binary); }
    std::filesystem::resize_file(path, static_cast<uintmax_t>(size));   // sparse: no disk for the "audio"
    const clString widePath = clString::FromUtf8(path);
    const IDTags tags = TitleAndCover();
    WriteStdTags(widePath, tags, 1, nullptr);   // the first write creates the tag

    const int64_t readBefore = benchio::IoCounter("rchar");
    const int64_t writtenBefore = benchio::IoCounter("wchar");
    for (auto _ : state) {
        if (!WriteStdTags(widePath, tags, 1, nullptr)) state.SkipWithError("the write failed");
    }
    const double writes = static_cast<double>(state.iterations());
    state.counters["read_KiB"] = static_cast<double>(benchio::IoCounter("rchar") - readBefore) / writes / 1024;
    state.counters["written_KiB"] = static_cast<double>(benchio::IoCounter("wchar") - writtenBefore) / writes / 1024;
    std::filesystem::remove(path);
}

}  // namespace

BENCHMARK(WriteTitleAndCover)->Arg(int64_t{1} << 20)->Arg(int64_t{1} << 30)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
