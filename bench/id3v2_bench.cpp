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

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/clFile.h"
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

void RewriteChangingSize(benchmark::State& state) { Rewrite(state, true); }
void RewriteSameSize(benchmark::State& state) { Rewrite(state, false); }

void ReadLargeTag(benchmark::State& state) { ReadTags(state, 10u << 20); }
void ReadSmallTag(benchmark::State& state) { ReadTags(state, 0); }

}  // namespace

BENCHMARK(ReadLargeTag)->Arg(int64_t{11} << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadSmallTag)->Arg(int64_t{1} << 20)->Arg(int64_t{3} << 29)->Unit(benchmark::kMicrosecond);
BENCHMARK(RewriteChangingSize)->Arg(int64_t{1} << 30)->Iterations(4)->Unit(benchmark::kMillisecond);
BENCHMARK(CopyFileOnce)->Arg(int64_t{1} << 30)->Iterations(4)->Unit(benchmark::kMillisecond);
BENCHMARK(RewriteSameSize)->Arg(int64_t{1} << 20)->Arg(int64_t{1} << 30)->Unit(benchmark::kMicrosecond);
