// Stands in for the worker where the tests need output that the real one
// gives only after hours. Called as the plug-in calls the worker; the file
// behind "-i" holds its orders, one "key value" per line:
//   channels N    16-bit channels (default 2)
//   frames N      sample frames to stream (default 44100)
//   progress N    bytes of progress text on the error stream, spread over
//                 the audio, each piece ended by a carriage return only
//   noreturns 1   the progress text has no line ends at all
//   silent 1      writes nothing at all and exits with 1
//   garbage 1     writes bytes that are no Wave64 header and exits
//   hang 1        writes nothing and never exits
//   floodlines N  N bytes of dump-like lines on the error stream first
//   dieafter N    dies (exit 1) after N bytes of audio, the header promising more
//   stall N       stops after N bytes of audio and never exits
//   nodump 1      prints no dump of its input, so Open waits for one
// It prints a short dump of its input first, then streams a Wave64 header
// and PatternByte(i) as the sample bytes, with the progress text between
// pieces of audio. Every write blocks: an error stream nobody drains stalls
// the audio, as it does with the real worker.
//
// Called without "-i FILE", it runs its arguments as commands for the
// transport tests, in order:
//   pid            print the process id and a newline to stdout
//   pattern N      write N bytes of PatternByte(i) to stdout
//   lines N        print "line <i>" N times to stderr
//   args           print each argument, each ended by a NUL, to stdout
//   fds            print the open descriptors, one per line, to stdout
//   stdin          read stdin until its end
//   ignore-term    ignore SIGTERM
//   ignore-pipe    ignore SIGPIPE, so a closed stdout doesn't end it
//   sleep MS       sleep
//   trace PID      attach to PID as its tracer and print "traced" or
//                  "untraced"; a traced child that ends stays unreapable
//                  for its parent until this process ends

#include <dirent.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>

#include "tests/transport/pattern.h"

namespace {

void Write(int fd, const std::string& bytes) {
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) ::_exit(3);
        done += static_cast<size_t>(n);
    }
}

// A write that goes on past a closed pipe, as the transport tests ask.
void Offer(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(fd, text.data(), text.size());
        if (written <= 0) return;
        text.remove_prefix(static_cast<size_t>(written));
    }
}

void Command(const std::string& command, unsigned long long value, int argc, char** argv) {
    if (command == "pid") Offer(1, std::to_string(::getpid()) + "\n");
    else if (command == "ignore-term") ::signal(SIGTERM, SIG_IGN);
    else if (command == "ignore-pipe") ::signal(SIGPIPE, SIG_IGN);
    else if (command == "trace")
        Offer(1, ::ptrace(PTRACE_SEIZE, static_cast<pid_t>(value), nullptr, nullptr) == 0 ? "traced\n" : "untraced\n");
    else if (command == "sleep") std::this_thread::sleep_for(std::chrono::milliseconds(value));
    else if (command == "lines") {
        for (unsigned long long n = 0; n < value; ++n) Offer(2, "line " + std::to_string(n) + "\n");
    } else if (command == "pattern") {
        std::string chunk;
        for (unsigned long long done = 0; done < value; done += chunk.size()) {
            chunk.resize(static_cast<size_t>(std::min<unsigned long long>(65536, value - done)));
            for (size_t k = 0; k < chunk.size(); ++k) chunk[k] = static_cast<char>(PatternByte(done + k));
            Offer(1, chunk);
        }
    } else if (command == "args") {
        for (int a = 0; a < argc; ++a) Offer(1, std::string(argv[a]) + '\0');
    } else if (command == "fds") {
        DIR* dir = ::opendir("/proc/self/fd");
        while (dirent* entry = dir ? ::readdir(dir) : nullptr) {
            if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != ::dirfd(dir)) Offer(1, std::string(entry->d_name) + "\n");
        }
        if (dir) ::closedir(dir);
    } else if (command == "stdin") {
        for (char buffer[4096]; ::read(0, buffer, sizeof buffer) > 0;) {}
    }
}

int RunCommands(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string command = argv[i];
        const bool takesValue = command == "trace" || command == "sleep" || command == "lines" || command == "pattern";
        Command(command, takesValue && i + 1 < argc ? std::strtoull(argv[i + 1], nullptr, 10) : 0, argc, argv);
        if (takesValue) ++i;
    }
    return 0;
}

// `value` in `bytes` bytes, little-endian.
std::string Little(uint64_t value, int bytes) {
    std::string out;
    for (int i = 0; i < bytes; ++i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
    return out;
}

std::string Guid(const char* name, bool riff) {
    static const unsigned char kRiffTail[12] = {0x2E, 0x91, 0xCF, 0x11, 0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00};
    static const unsigned char kTail[12] = {0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
    return std::string(name, 4) + std::string(reinterpret_cast<const char*>(riff ? kRiffTail : kTail), 12);
}

// 16-bit PCM at 44100 Hz; the data chunk's size promises `dataBytes`.
std::string Wave64Header(uint32_t channels, uint64_t dataBytes) {
    const std::string format = Little(1, 2) + Little(channels, 2) + Little(44100, 4) +
                               Little(44100u * channels * 2, 4) + Little(channels * 2, 2) + Little(16, 2);
    return Guid("riff", true) + Little(16 + 8 + 16 + 24 + format.size() + 24 + dataBytes, 8) + Guid("wave", false) +
           Guid("fmt ", false) + Little(24 + format.size(), 8) + format + Guid("data", false) +
           Little(24 + dataBytes, 8);
}

std::map<std::string, uint64_t> Orders(const char* path) {
    std::map<std::string, uint64_t> orders = {{"channels", 2}, {"frames", 44100}, {"progress", 0}, {"noreturns", 0},
                                               {"silent", 0},   {"garbage", 0},  {"hang", 0},     {"floodlines", 0},
                                               {"dieafter", ~uint64_t{0}},       {"stall", ~uint64_t{0}}, {"nodump", 0}};
    std::ifstream in(path);
    std::string key;
    for (uint64_t value = 0; in >> key >> value;) orders[key] = value;
    return orders;
}

[[noreturn]] void Hang() {
    for (;;) ::pause();
}

// Lines as the dump has them, none of them meaningful to the parser.
void FloodLines(uint64_t bytes) {
    const std::string line = "    comment         : " + std::string(100, 'f') + "\n";
    std::string chunk;
    while (chunk.size() < 65536) chunk += line;
    for (uint64_t done = 0; done < bytes; done += chunk.size()) Write(2, chunk);
}

}  // namespace

int main(int argc, char** argv) {
    const char* input = nullptr;
    for (int i = 1; i + 1 < argc; ++i)
        if (std::strcmp(argv[i], "-i") == 0) input = argv[i + 1];
    if (input == nullptr) return RunCommands(argc, argv);
    const auto orders = Orders(input);
    const uint32_t channels = static_cast<uint32_t>(orders.at("channels"));
    const uint64_t dataBytes = orders.at("frames") * channels * 2;
    const bool noReturns = orders.at("noreturns") != 0;
    if (orders.at("silent") != 0) return 1;
    if (orders.at("hang") != 0) Hang();
    if (orders.at("garbage") != 0) {
        Write(1, std::string(4096, 'x'));
        return 0;
    }
    FloodLines(orders.at("floodlines"));

    if (orders.at("nodump") == 0) {
        Write(2, std::string("Input #0, w64, from '") + input + "':\n"
                 "  Duration: 00:00:01.00, start: 0.000000, bitrate: 1411 kb/s\n"
                 "  Stream #0:0: Audio: pcm_s16le, 44100 Hz, " + std::to_string(channels) + " channels, s16\n"
                 "Output #0, w64, to 'pipe:':\n");
    }
    Write(1, Wave64Header(channels, dataBytes));

    constexpr uint64_t kPiece = 16384;
    const uint64_t pieces = std::max<uint64_t>(1, (dataBytes + kPiece - 1) / kPiece);
    const uint64_t progressPerPiece = orders.at("progress") / pieces + 1;
    std::string audio;
    uint64_t counter = 0;
    for (uint64_t at = 0; at < dataBytes; at += audio.size()) {
        if (at >= orders.at("dieafter")) ::_exit(1);
        if (at >= orders.at("stall")) Hang();
        audio.resize(static_cast<size_t>(std::min({kPiece, dataBytes - at, orders.at("dieafter") - at,
                                                   orders.at("stall") - at})));
        for (size_t k = 0; k < audio.size(); ++k) audio[k] = static_cast<char>(PatternByte(at + k));
        Write(1, audio);
        std::string progress;
        while (progress.size() < progressPerPiece) {
            progress += "size=" + std::to_string(++counter) + "kB time=00:00:00.00 bitrate=1411.2kbits/s speed=1x";
            progress += noReturns ? "    " : "\r";
        }
        Write(2, progress);
    }
    Write(2, "\n");
    return 0;
}
