// The Matroska engine on files of 15 MB and 1.5 GB: reading the tags (at the
// front, and at the end found through the SeekHead) and retagging a title
// and a 300 KB cover, against mkvpropedit doing the same change. The files
// are built here, sparse: their Clusters are headers around holes, so the
// big one costs no disk. Time and bytes read should not grow with the size.

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/qel-matroska/ebml.h"
#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "bench/benchio.h"
#include "tags/idtags.h"

namespace {

constexpr uint64_t kMiB = uint64_t{1} << 20;
constexpr uint64_t kLargestCluster = 256 * kMiB;
constexpr uint32_t kCoverBytes = 300 * 1024;


std::string Element(uint32_t id, const std::string& body) {
    EBML::StreamWritableSimple sink;
    EBML::WriteElement(sink, id, body.data(), body.size());
    const std::vector<uint8_t> bytes = sink.Take();
    return std::string(bytes.begin(), bytes.end());
}

std::string UInt(uint32_t id, uint64_t value) {
    EBML::StreamWritableSimple sink;
    EBML::WriteUIntElement(sink, id, value);
    const std::vector<uint8_t> bytes = sink.Take();
    return std::string(bytes.begin(), bytes.end());
}

std::string Seek(uint32_t id, uint64_t position) {
    uint8_t idBytes[8];
    const int width = EBML::EncodeVarInt(id, idBytes);
    return Element(0xDBB, Element(0x13AB, std::string(idBytes, idBytes + width)) + UInt(0x13AC, position));
}

// The header of an element with an eight-byte size field.
std::string LongHeader(uint32_t id, uint64_t size) {
    uint8_t idBytes[8], sizeBytes[8];
    const int width = EBML::EncodeVarInt(id, idBytes);
    EBML::EncodeVarIntFixed(size, sizeBytes, 8);
    return std::string(idBytes, idBytes + width) + std::string(sizeBytes, sizeBytes + 8);
}

// A PCM audio file of about `mib` MiB of sparse Clusters with its Tags in
// front of them or behind them.
void BuildFile(const std::string& path, uint64_t mib, bool tagsAtEnd) {
    const uint64_t kClusterBytes = std::min(mib * kMiB, kLargestCluster);
    const int clusters = static_cast<int>(mib * kMiB / kClusterBytes);
    const std::string header = Element(0x0A45DFA3, Element(0x282, "matroska") + UInt(0x287, 4) + UInt(0x285, 2));
    const std::string info = Element(0x0549A966, UInt(0x2AD7B1, 1000000));
    const std::string audio = Element(0x61, UInt(0x1F, 2) + UInt(0x2264, 16) + Element(0x35, std::string("\x47\x2C\x44\x00", 4)));
    const std::string tracks = Element(0x0654AE6B, Element(0x2E, UInt(0x57, 1) + UInt(0x33C5, 77) + UInt(0x03, 2) +
                                                                  Element(0x06, "A_PCM/INT/LIT") + audio));
    const std::string tags = Element(0x0254C367, Element(0x3373, Element(0x27C8, Element(0x5A3, "TITLE") +
                                                                                    Element(0x487, "Old title"))));
    const uint64_t front = 200;   // SeekHead and Void
    const uint64_t clusterTotal = LongHeader(0x0F43B675, 0).size() + kClusterBytes;
    const uint64_t metaFront = info.size() + tracks.size() + (tagsAtEnd ? 0 : tags.size());
    const uint64_t clustersStart = front + metaFront;
    const uint64_t tagsAt = tagsAtEnd ? clustersStart + clusterTotal * static_cast<uint64_t>(clusters)
                                      : front + info.size() + tracks.size();
    const std::string seekHead = Element(0x014D9B74, Seek(0x0549A966, front) + Seek(0x0654AE6B, front + info.size()) +
                                                         Seek(0x0254C367, tagsAt));
    const std::vector<uint8_t> padding = EBML::BuildVoid(front - seekHead.size());
    const uint64_t segmentSize = clustersStart + clusterTotal * static_cast<uint64_t>(clusters) + (tagsAtEnd ? tags.size() : 0);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << header << LongHeader(0x08538067, segmentSize) << seekHead
        << std::string(padding.begin(), padding.end()) << info << tracks;
    if (!tagsAtEnd) out << tags;
    uint64_t at = static_cast<uint64_t>(out.tellp());
    for (int i = 0; i < clusters; ++i) {
        // A Timestamp, then one Void over the hole that is the audio.
        const std::string head = LongHeader(0x0F43B675, kClusterBytes) + UInt(0x67, static_cast<uint64_t>(i) * 1000);
        const std::string hole = LongHeader(0x6C, kClusterBytes - (head.size() - 12) - 9);
        out.seekp(static_cast<std::streamoff>(at));
        out << head << hole;
        at += clusterTotal;
    }
    out.seekp(static_cast<std::streamoff>(at));
    if (tagsAtEnd) out << tags;
    out.close();
    std::filesystem::resize_file(path, at + (tagsAtEnd ? tags.size() : 0));
}

std::string BenchPath(const char* name) {
    return (std::filesystem::temp_directory_path() / ("fd-mkvbench-" + std::to_string(::getpid()) + name)).string();
}

IDTags TitleAndCover() {
    const std::string cover = benchio::CoverBytes(kCoverBytes, std::string("\xFF\xD8\xFF\xC0\x00\x11\x08\x01\x2C\x01\x2C\x03", 12));
    IDTags tags;
    tags.Add(clString(u"TITLE"), clString(u"Benchmark title"));
    tags.AddBinary(clString(u"_albumart_1_Front Album Cover"), cover.data(), kCoverBytes);
    return tags;
}

void ReadTags(benchmark::State& state) {
    const auto mib = static_cast<uint64_t>(state.range(0));
    const std::string path = BenchPath(".mka");
    BuildFile(path, mib, state.range(1) != 0);
    const clString wide = clString::FromUtf8(path);
    const int64_t readBefore = benchio::IoCounter("rchar");
    for (auto _ : state) {
        IDTags tags;
        if (!MatroskaTags::Read(wide, tags, nullptr) || tags.Count() != 1) state.SkipWithError("the read failed");
    }
    state.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
    state.counters["read_KiB"] =
        static_cast<double>(benchio::IoCounter("rchar") - readBefore) / static_cast<double>(state.iterations()) / 1024;
    std::filesystem::remove(path);
}

// Our retag and mkvpropedit's, each on a freshly built file per iteration.
void Retag(benchmark::State& state) {
    const auto mib = static_cast<uint64_t>(state.range(0));
    const bool external = state.range(1) != 0;
    const std::string path = BenchPath(".mka");
    const std::string cover = BenchPath(".jpg"), xml = BenchPath(".xml");
    const IDTags tags = TitleAndCover();
    {
        std::ofstream(cover, std::ios::binary).write(reinterpret_cast<const char*>(tags[1].Data.Data()), kCoverBytes);
        std::ofstream(xml) << "<Tags><Tag><Simple><Name>TITLE</Name><String>Benchmark title</String></Simple></Tag></Tags>";
    }
    const std::string command = "/usr/bin/mkvpropedit -q '" + path + "' --tags 'global:" + xml +
                                "' --attachment-name cover.jpg --attachment-mime-type image/jpeg --add-attachment '" +
                                cover + "'";
    const clString wide = clString::FromUtf8(path);
    for (auto _ : state) {
        state.PauseTiming();
        BuildFile(path, mib, true);
        state.ResumeTiming();
        // mkvpropedit's status 1 means warnings only.
        const bool ok = external ? WEXITSTATUS(std::system(command.c_str())) <= 1 : MatroskaTags::Write(wide, tags, nullptr);
        if (!ok) {
            state.SkipWithError("the retag failed");
            break;
        }
    }
    state.SetLabel(external ? "mkvpropedit" : "plug-in");
    state.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
    for (const std::string& file : {path, cover, xml}) std::filesystem::remove(file);
}

}  // namespace

// Arguments: MiB of audio (16 or 1536), then tags at the end (read) or
// mkvpropedit instead of the plug-in (retag).
BENCHMARK(ReadTags)->Args({16, 0})->Args({16, 1})->Args({1536, 0})->Args({1536, 1})->Unit(benchmark::kMicrosecond);
BENCHMARK(Retag)->Args({16, 0})->Args({1536, 0})->Args({16, 1})->Args({1536, 1})->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK_MAIN();
