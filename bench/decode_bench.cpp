// decode_bench: the decode run against ffmpeg alone, on the same files.
//   throughput   fdhost decode to /dev/null / ffmpeg writing w64 to /dev/null
//   open         Open called to first block in hand / ffmpeg start to first byte
//   seek         SetPosition called to first block in hand
//   memory       peak RSS of a host process decoding 1 and 10 minutes
// Usage: decode_bench [--runs N] [--minutes M]

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_process.h"
#include "codecs/decoders/ffmpeg/exports.h"
#include "host/plugin.h"

namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// One decoder, opened on a file, destroyed with the scope.
class Session {
public:
    Session(const host::Plugin& exports, const std::u16string& path) : exports_(exports), path_(path) {
        const DecoderCreateInfo info{};
        decoder_ = exports_.Create(&info);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { exports_.Destroy(decoder_); }

    bool Open() {
        DecoderOpenInfo info{};
        info.path = path_.c_str();
        info.flags = 8 | 16;
        return exports_.Open(decoder_, &info) != 0;
    }
    bool Block(DecoderBlockInfo& block) { return exports_.DecodeBlock(decoder_, &block) != 0; }
    bool Seek(int64_t frame) { return exports_.SetPosition(decoder_, frame) != 0; }
    void Close() { exports_.Close(decoder_); }

private:
    const host::Plugin& exports_;
    std::u16string path_;
    void* decoder_ = nullptr;
};

std::u16string Wide(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

void MakeNoise(const std::string& path, int seconds) {
    bench::TimeRun({FD_FFMPEG_PATH, "-nostdin", "-hide_banner", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
                    "anoisesrc=d=" + std::to_string(seconds) + ":c=pink:a=0.3:r=44100", "-ac", "2", path});
}

void Throughput(const std::string& file, int runs) {
    std::vector<double> host;
    std::vector<double> alone;
    for (int i = 0; i < runs; ++i) {
        // Alternating, so that a drift of the machine hits both alike.
        alone.push_back(bench::TimeRun({FD_FFMPEG_PATH, "-nostdin", "-hide_banner", "-loglevel", "error", "-y", "-i",
                                        file, "-f", "w64", "/dev/null"}));
        host.push_back(bench::TimeRun({FD_HOST_PATH, "decode", "--quiet", file, "-o", "/dev/null"}));
    }
    // The best run of each is the least disturbed by the rest of the machine.
    const double h = *std::min_element(host.begin(), host.end());
    const double a = *std::min_element(alone.begin(), alone.end());
    std::printf("throughput  fdhost decode %.3f s   ffmpeg alone %.3f s   ratio %.3f (target <= 1.03; best of %d)\n",
                h, a, h / a, runs);
    std::printf("            medians %.3f s / %.3f s, ratio %.3f\n", bench::Median(host), bench::Median(alone),
                bench::Median(host) / bench::Median(alone));
}

void OpenLatency(const host::Plugin& exports, const std::string& file, int runs) {
    std::vector<double> plugin;
    std::vector<double> alone;
    for (int i = 0; i < runs; ++i) {
        alone.push_back(bench::TimeFirstByte({FD_FFMPEG_PATH, "-hide_banner", "-i", file, "-f", "w64", "-"}));
        Session session(exports, Wide(file));
        const auto start = Clock::now();
        DecoderBlockInfo block{};
        if (!session.Open() || !session.Block(block)) throw std::runtime_error("Open failed");
        plugin.push_back(Since(start));
        session.Close();
    }
    const double p = bench::Median(plugin) * 1000;
    const double a = bench::Median(alone) * 1000;
    std::printf("open        Open to first block %.1f ms   ffmpeg to first byte %.1f ms   more %.1f ms (target < 20)\n",
                p, a, p - a);
}

void SeekLatency(const host::Plugin& exports, const std::string& file, int runs, int seconds) {
    Session session(exports, Wide(file));
    if (!session.Open()) throw std::runtime_error("Open failed");
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const int64_t frame = int64_t{44100} * (seconds * (i % 10 + 1) / 11);
        const auto start = Clock::now();
        DecoderBlockInfo block{};
        if (!session.Seek(frame) || !session.Block(block)) throw std::runtime_error("SetPosition failed");
        times.push_back(Since(start));
    }
    session.Close();
    std::printf("seek        SetPosition to first block %.1f ms (median of %d)\n", bench::Median(times) * 1000, runs);
}

long PeakRssKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::atol(line.c_str() + 6);
    }
    return -1;
}

// Peak RSS of a fresh process that loads the plug-in and decodes `file`
// completely: a child of its own, so that one file's peak can't hide another's.
long DecodePeakRss(const char* pluginPath, const std::string& file) {
    int fds[2];
    if (::pipe(fds) != 0) throw std::runtime_error("pipe");
    const pid_t pid = ::fork();
    if (pid == 0) {
        long peak = -1;
        {
            host::Plugin exports(pluginPath);
            Session session(exports, Wide(file));
            DecoderBlockInfo block{};
            bool ok = session.Open();
            while (ok && session.Block(block) && !block.endOfStream && block.bytes != 0) {
            }
            session.Close();
            if (ok) peak = PeakRssKiB();
        }
        [[maybe_unused]] const ssize_t written = ::write(fds[1], &peak, sizeof peak);
        ::_exit(0);
    }
    ::close(fds[1]);
    long peak = -1;
    if (::read(fds[0], &peak, sizeof peak) != sizeof peak) peak = -1;
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return peak;
}

}  // namespace

int main(int argc, char** argv) {
    int runs = 5;
    int minutes = 10;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--runs") == 0) runs = std::atoi(argv[i + 1]);
        if (std::strcmp(argv[i], "--minutes") == 0) minutes = std::atoi(argv[i + 1]);
    }
    const std::filesystem::path dir =
        std::filesystem::temp_directory_path() / ("decode_bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    try {
        const std::string longFile = (dir / "long.flac").string();
        const std::string shortFile = (dir / "short.flac").string();
        std::printf("making %d-minute and 1-minute 44.1 kHz stereo FLAC files...\n", minutes);
        MakeNoise(longFile, minutes * 60);
        MakeNoise(shortFile, 60);

        Throughput(longFile, runs);
        {
            host::Plugin exports(FD_PLUGIN_PATH);
            OpenLatency(exports, longFile, runs * 2);
            SeekLatency(exports, longFile, runs * 2, minutes * 60);
        }
        const long shortPeak = DecodePeakRss(FD_PLUGIN_PATH, shortFile);
        const long longPeak = DecodePeakRss(FD_PLUGIN_PATH, longFile);
        std::printf("memory      peak RSS decoding 1 min %ld KiB, %d min %ld KiB (should not grow with length)\n",
                    shortPeak, minutes, longPeak);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "decode_bench: %s\n", error.what());
        std::filesystem::remove_all(dir);
        return 1;
    }
    std::filesystem::remove_all(dir);
    return 0;
}
