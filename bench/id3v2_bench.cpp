// ID3v2 tags. Reading: a file with a 10 MB tag (one large cover) against a
// file with a small tag at 1 MB and 1.5 GB; the second time must not grow
// with the file, since reading stops at the tag's declared end (those files
// are sparse and cost no disk). Rewriting: a tag whose size changes in a 1 GB
// file moves everything behind it, so it is measured against copying that
// file once; a tag of unchanged size is rewritten in place and must cost the
// same at 1 MB and 1 GB.
//
// Figures on the shared 2-core build machine, Release, files in the page
// cache: ReadLargeTag 3.8 ms; ReadSmallTag 16.5 us (1 MB) and 17.7 us
// (1.5 GB); RewriteSameSize 37 us (1 MB) and 28-37 us (1 GB);
// RewriteChangingSize 0.27-0.30 s against CopyFileOnce 3.1 s (1 GB).
//
// Tags built to be slow must read and write in linear time and bounded
// memory: 240,000 TXXX "Year" frames of distinct values, and a TCON of
// "Rock;(;(;..." of 8 and 16 MB, each read, and rewritten with a new album.
// peak_MB is the peak resident size of a child process that does the same
// once. LyingSizes parses 10 KB whose tag claims 256 MiB and whose frame
// claims 64 MiB; largest_KB is its largest single allocation.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "largest_allocation.h"
#include "support/clFile.h"
#include "tags/id3v2/id3parser.h"
#include "tags/id3v2/tagid3v2.h"
#include "tags/stdtags.h"

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

std::string TempPath(const char* what) {
    return (std::filesystem::temp_directory_path() /
            ("fd-id3bench-" + std::string(what) + "-" + std::to_string(::getpid()) + ".tak"))
        .string();
}

// A small tag in front of `size` bytes of real (not sparse) data, so that a
// move really reads and writes them.
std::string MakeTaggedFile(const char* what, int64_t size) {
    const std::string path = TempPath(what);
    std::ofstream out(path, std::ios::binary);
    out << TagBytes(0);
    std::string block(1 << 20, 'a');
    for (int64_t left = size; left > 0; left -= static_cast<int64_t>(block.size())) {
        out.write(block.data(), static_cast<std::streamsize>(std::min<int64_t>(left, static_cast<int64_t>(block.size()))));
    }
    return path;
}

void Rewrite(benchmark::State& state, bool sizeChanges) {
    const std::string path = MakeTaggedFile("rewrite", state.range(0));
    const clString widePath = clString::FromUtf8(path);
    IDTags first;
    first.Add(clString(u"Title"), clString(u"Benchmark two"));
    WriteStdTags(widePath, first, 1, nullptr);   // from here on only the title's length matters
    int round = 0;
    for (auto _ : state) {
        // Titles of two lengths alternate when the size is to change.
        IDTags tags;
        const bool longer = sizeChanges && (++round % 2 == 1);
        tags.Add(clString(u"Title"), clString(longer ? u"A much longer benchmark title" : u"Benchmark two"));
        if (!WriteStdTags(widePath, tags, 1, nullptr)) state.SkipWithError("the write failed");
    }
    std::filesystem::remove(path);
}

// The reference for a move: copying the same file once into a new file, in
// the same 64 KiB steps of clFile.
void CopyFileOnce(benchmark::State& state) {
    const std::string path = MakeTaggedFile("copy", state.range(0));
    const std::string copy = path + ".copy";
    std::vector<uint8_t> block(65536);
    for (auto _ : state) {
        { std::ofstream create(copy, std::ios::binary | std::ios::trunc); }
        clFile in(clString::FromUtf8(path)), out(clString::FromUtf8(copy));
        if (!in.Open(clFile::kRead) || !out.Open(clFile::kWrite)) state.SkipWithError("cannot open the files");
        for (uint32_t got; (got = in.Read(block.data(), static_cast<uint32_t>(block.size()))) > 0;) {
            if (!out.Write(block.data(), got)) state.SkipWithError("the copy failed");
        }
    }
    std::filesystem::remove(copy);
    std::filesystem::remove(path);
}

// 2.3 tags built to be slow: `count` TXXX "Year" frames of distinct values,
// or one TCON whose ";(" pieces each repeat the genre before them.
std::string SlowTag(bool years, uint32_t count) {
    std::string frames = Frame("TALB", std::string("\0Album", 6));
    if (years) {
        for (uint32_t i = 0; i < count; ++i) frames += Frame("TXXX", std::string("\0Year\0", 6) + std::to_string(i));
    } else {
        std::string genres = std::string("\0Rock", 5);
        while (genres.size() < count) genres += ";(";
        frames += Frame("TCON", genres);
    }
    return std::string("ID3\x03\0\0", 6) + Synchsafe(static_cast<uint32_t>(frames.size())) + frames;
}

// Peak resident memory of a fresh process of this program that runs one
// read or write of `path` ("--once read|write PATH" prints its VmHWM), in MB.
double PeakMegabytes(bool write, const std::string& path) {
    const std::string command = "/proc/" + std::to_string(::getpid()) + "/exe --once " + (write ? "write " : "read ") + path;
    FILE* child = ::popen(command.c_str(), "r");
    if (!child) return -1;
    double kilobytes = -1;
    if (std::fscanf(child, "%lf", &kilobytes) != 1) kilobytes = -1;
    return ::pclose(child) == 0 ? kilobytes / 1024.0 : -1;
}

// The process's peak resident size in KB, from /proc/self/status.
long PeakKilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
    }
    return -1;
}

bool Once(bool write, const clString& path, int round) {
    IDTags tags;
    if (write) {
        tags.Add(clString(u"Album"), clString(round % 2 ? u"Another album" : u"Album"));
        return WriteStdTags(path, tags, 1, nullptr);
    }
    clString version;
    return ReadStdTags(path, tags, version, nullptr) && tags.Count() >= 2;
}

void SlowTags(benchmark::State& state, bool write) {
    const std::string path = TempPath(write ? "slow-write" : "slow-read");
    {
        std::ofstream create(path, std::ios::binary);
        create << SlowTag(state.range(0) == 0, static_cast<uint32_t>(state.range(1))) << std::string(4096, 'a');
    }
    const clString widePath = clString::FromUtf8(path);
    state.counters["peak_MB"] = PeakMegabytes(write, path);
    int round = 0;
    for (auto _ : state) {
        if (!Once(write, widePath, ++round)) state.SkipWithError("the read or write failed");
    }
    std::filesystem::remove(path);
}

void ReadSlowTag(benchmark::State& state) { SlowTags(state, false); }
void WriteSlowTag(benchmark::State& state) { SlowTags(state, true); }

void LyingSizes(benchmark::State& state) {
    std::string bytes = std::string("ID3\x03\0\0\x7F\x7F\x7F\x7F", 10) + "TALB" + BigEndian(0x3FFFFFF) + std::string(2, '\0');
    bytes.resize(10000, 'x');
    size_t largest = 0;
    for (auto _ : state) {
        LargestAllocation watch;
        id3parser::streamInMem stream(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        id3parser::parseCallback callback;
        id3parser::id3tag tag;
        id3parser::parseTag(tag, stream, callback);
        if (!tag.damage) state.SkipWithError("the lying frame was read");
        largest = std::max(largest, watch.Largest());
    }
    state.counters["largest_KB"] = static_cast<double>(largest) / 1024.0;
}

void RewriteChangingSize(benchmark::State& state) { Rewrite(state, true); }
void RewriteSameSize(benchmark::State& state) { Rewrite(state, false); }

void ReadLargeTag(benchmark::State& state) { ReadTags(state, 10u << 20); }
void ReadSmallTag(benchmark::State& state) { ReadTags(state, 0); }

}  // namespace

// Arguments: 0 for TXXX "Year" frames and their count, 1 for a TCON and its bytes.
BENCHMARK(ReadSlowTag)->Args({0, 240000})->Args({1, 8 << 20})->Args({1, 16 << 20})->Unit(benchmark::kMillisecond);
BENCHMARK(WriteSlowTag)->Args({0, 80000})->Args({0, 240000})->Args({1, 8 << 20})->Args({1, 16 << 20})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(LyingSizes)->Unit(benchmark::kMicrosecond);
BENCHMARK(ReadLargeTag)->Arg(int64_t{11} << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadSmallTag)->Arg(int64_t{1} << 20)->Arg(int64_t{3} << 29)->Unit(benchmark::kMicrosecond);
BENCHMARK(RewriteChangingSize)->Arg(int64_t{1} << 30)->Iterations(4)->Unit(benchmark::kMillisecond);
BENCHMARK(CopyFileOnce)->Arg(int64_t{1} << 30)->Iterations(4)->Unit(benchmark::kMillisecond);
BENCHMARK(RewriteSameSize)->Arg(int64_t{1} << 20)->Arg(int64_t{1} << 30)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) {
    if (argc == 4 && std::string(argv[1]) == "--once") {
        const bool done = Once(std::string(argv[2]) == "write", clString::FromUtf8(argv[3]), 1);
        std::printf("%ld\n", PeakKilobytes());
        return done ? 0 : 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
