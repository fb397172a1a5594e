// Stands in for the worker, obeying the "key value" lines of the file behind "-i": channels N (16-bit, default 2);
// frames N (default 44100); progress N bytes of "\r"-ended progress text between audio pieces (noreturns 1: none);
// floodlines N bytes of dump-like lines first; nodump 1; garbage 1 (no Wave64 header); hang 1 (seekhang 1: when given
// "-ss"); dieafter/stall/holdat N: after N audio bytes exit 1, hang, or wait for PATH.go. Audio is PatternByte(i);
// writes block. Each start appends its arguments, one a line, to PATH.args. Without "-i" it runs the transport tests'
// commands (fake_worker_posix.cpp).
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include "tests/integration/fake_worker.h"
#include "tests/transport/pattern.h"

namespace {

using Orders = std::map<std::string, uint64_t>;

void Write(FILE* to, std::string_view bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), to) != bytes.size() || std::fflush(to) != 0) std::_Exit(3);
}

// `value` in `bytes` bytes, little-endian.
std::string Little(uint64_t value, int bytes) {
    std::string out;
    for (int i = 0; i < bytes; ++i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
    return out;
}

// 16-bit PCM at 44100 Hz; the data chunk's size promises `dataBytes`.
std::string Wave64Header(uint32_t channels, uint64_t dataBytes) {
    const std::string riff("\x2E\x91\xCF\x11\xA5\xD6\x28\xDB\x04\xC1\x00\x00", 12);
    const std::string tail("\xF3\xAC\xD3\x11\x8C\xD1\x00\xC0\x4F\x8E\xDB\x8A", 12);
    const std::string format = Little(1, 2) + Little(channels, 2) + Little(44100, 4) +
                               Little(44100u * channels * 2, 4) + Little(channels * 2, 2) + Little(16, 2);
    return "riff" + riff + Little(16 + 8 + 16 + 24 + format.size() + 24 + dataBytes, 8) + "wave" + tail + "fmt " +
           tail + Little(24 + format.size(), 8) + format + "data" + tail + Little(24 + dataBytes, 8);
}
[[noreturn]] void Hang() { for (;;) std::this_thread::sleep_for(std::chrono::hours(1)); }
void Stream(Orders& orders, const std::string& input) {
    const uint32_t channels = static_cast<uint32_t>(orders["channels"]);
    const uint64_t dataBytes = orders["frames"] * channels * 2;
    // Lines as the dump has them, none of them meaningful to the parser.
    std::string flood;
    while (flood.size() < 65536) flood += "    comment         : " + std::string(100, 'f') + "\n";
    for (uint64_t done = 0; done < orders["floodlines"]; done += flood.size()) Write(stderr, flood);
    if (orders["nodump"] == 0) {
        Write(stderr, "Input #0, w64, from '" + input + "':\n"
                      "  Duration: 00:00:01.00, start: 0.000000, bitrate: 1411 kb/s\n"
                      "  Stream #0:0: Audio: pcm_s16le, 44100 Hz, " + std::to_string(channels) + " channels, s16\n"
                      "Output #0, w64, to 'pipe:':\n");
    }
    Write(stdout, Wave64Header(channels, dataBytes));
    // Progress only when asked: a stray write could meet a pipe the plug-in has closed.
    const uint64_t progressPerPiece =
        orders.contains("progress") ? orders["progress"] / std::max<uint64_t>(1, (dataBytes + 16383) / 16384) + 1 : 0;
    std::string audio;
    uint64_t counter = 0;
    for (uint64_t at = 0; at < dataBytes; at += audio.size()) {
        if (orders.contains("dieafter") && at == orders["dieafter"]) std::_Exit(1);
        if (orders.contains("stall") && at == orders["stall"]) Hang();
        while (orders.contains("holdat") && at == orders["holdat"] && !std::filesystem::exists(input + ".go"))
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        // Each piece ends at the next stop of the orders.
        uint64_t piece = std::min<uint64_t>(16384, dataBytes - at);
        for (const char* stop : {"dieafter", "stall", "holdat"})
            if (orders.contains(stop) && orders[stop] > at) piece = std::min(piece, orders[stop] - at);
        audio.resize(static_cast<size_t>(piece));
        for (size_t k = 0; k < audio.size(); ++k) audio[k] = static_cast<char>(PatternByte(at + k));
        Write(stdout, audio);
        std::string progress;
        while (progress.size() < progressPerPiece) {
            progress += "size=" + std::to_string(++counter) + "kB time=00:00:00.00 bitrate=1411.2kbits/s speed=1x";
            progress += orders["noreturns"] ? "    " : "\r";
        }
        Write(stderr, progress);
    }
    Write(stderr, "\n");
}

}  // namespace

int main(int argc, char** argv) {
    const char* input = nullptr;
    bool seeking = false;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "-i") == 0) input = argv[i + 1];
        seeking = seeking || std::strcmp(argv[i], "-ss") == 0;
    }
    if (input == nullptr) return RunCommands(argc, argv);
    PrepareOutputs();
    std::ifstream in(input);
    if (!in) {
        Write(stderr, std::string(input) + ": No such file or directory\n");
        return 1;
    }
    Orders orders = {{"channels", 2}, {"frames", 44100}};
    std::string key;
    for (uint64_t value = 0; in >> key >> value;) orders[key] = value;
    std::ofstream args(std::string(input) + ".args", std::ios::app | std::ios::binary);
    for (int i = 0; i < argc; ++i) args << argv[i] << '\n';
    args << std::endl;
    if (orders["hang"] != 0 || (seeking && orders["seekhang"] != 0)) Hang();
    if (orders["garbage"] != 0) {
        Write(stdout, std::string(4096, 'x'));
        return 0;
    }
    Stream(orders, input);
    return 0;
}
