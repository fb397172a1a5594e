// decode_bench: the decode run against ffmpeg alone, on the same files, the
// two measured side by side, round by round (the machine may be shared).
//   throughput   fdhost decode --raw to /dev/null / ffmpeg -f w64 - | cat,
//                and / ffmpeg writing w64 to /dev/null
//   open, close  Open / ffmpeg start to first byte; Close at the end and midway
//   seek         SetPosition to first block in hand / ffmpeg -ss to first byte
//   memory       peak RSS of a host process decoding 1 and 10 minutes
// Usage: decode_bench [--runs N] [--minutes M]

#include <dlfcn.h>
#include <sys/resource.h>
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

// The worker's own command line, and ffmpeg writing the same straight to a file.
std::vector<std::string> WorkerLine(const std::string& file, const std::string& seconds = {}) {
    std::vector<std::string> argv = {FD_FFMPEG_PATH};
    if (!seconds.empty()) argv.insert(argv.end(), {"-ss", seconds});
    argv.insert(argv.end(), {"-i", file, "-f", "w64", "-"});
    return argv;
}

// User and system time of the children reaped so far (and of theirs).
double ChildrenCpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void Throughput(const std::string& file, int rounds) {
    const std::vector<std::string> host = {FD_HOST_PATH, "decode", "--quiet", "--raw", file, "-o", "/dev/null"};
    const std::vector<std::string> alone = {FD_FFMPEG_PATH, "-y", "-i", file, "-f", "w64", "/dev/null"};
    std::vector<double> hostTimes, pipeTimes, aloneTimes, toPipe, toAlone, hostCpu, pipeCpu;
    for (int round = 0; round < rounds; ++round) {
        // Side by side, in an order that turns with each round, so that the
        // load of the shared machine meets all three alike.
        double h = 0, p = 0, a = 0;
        for (int k = 0; k < 3; ++k) {
            const int which = (round + k) % 3;
            const double cpu = ChildrenCpuSeconds();
            if (which == 0) h = bench::TimeRun(host);
            if (which == 1) p = bench::TimePipeline(WorkerLine(file), {"/bin/cat"});
            if (which == 2) a = bench::TimeRun(alone);
            if (which == 0) hostCpu.push_back(ChildrenCpuSeconds() - cpu);
            if (which == 1) pipeCpu.push_back(ChildrenCpuSeconds() - cpu);
        }
        hostTimes.push_back(h);
        pipeTimes.push_back(p);
        aloneTimes.push_back(a);
        toPipe.push_back(h / p);
        toAlone.push_back(h / a);
    }
    std::printf("throughput  medians of %d interleaved rounds: fdhost decode --raw %.3f s, ffmpeg -f w64 - | cat "
                "%.3f s, ffmpeg to /dev/null %.3f s\n",
                rounds, bench::Median(hostTimes), bench::Median(pipeTimes), bench::Median(aloneTimes));
    std::printf("            fdhost / pipe: median of the rounds' ratios %.3f (target <= 1.03), of the medians %.3f\n",
                bench::Median(toPipe), bench::Median(hostTimes) / bench::Median(pipeTimes));
    std::printf("            fdhost / ffmpeg alone: median of the rounds' ratios %.3f, of the medians %.3f\n",
                bench::Median(toAlone), bench::Median(hostTimes) / bench::Median(aloneTimes));
    std::printf("            CPU time: fdhost with its worker %.3f s, ffmpeg with cat %.3f s (medians)\n",
                bench::Median(hostCpu), bench::Median(pipeCpu));
}

// What a run costs besides the reading: Open against the worker's own start
// to its first byte, and Close after the end of the stream and in mid-stream.
void OpenAndClose(const host::Plugin& exports, const std::string& file, int rounds) {
    std::vector<double> open, firstByte, closeAtEnd, closeMidway;
    for (int round = 0; round < rounds; ++round) {
        firstByte.push_back(bench::TimeFirstByte(WorkerLine(file)));
        Session session(exports, Wide(file));
        auto start = Clock::now();
        DecoderBlockInfo block{};
        if (!session.Open()) throw std::runtime_error("Open failed");
        open.push_back(Since(start));
        const bool toTheEnd = round % 2 == 0;
        while (session.Block(block) && toTheEnd && !block.endOfStream && block.bytes != 0) {
        }
        start = Clock::now();
        session.Close();
        (toTheEnd ? closeAtEnd : closeMidway).push_back(Since(start));
    }
    const double o = bench::Median(open) * 1000;
    const double f = bench::Median(firstByte) * 1000;
    std::printf("open        Open %.1f ms   ffmpeg start to first byte %.1f ms   fixed cost %.1f ms (medians of %d)\n",
                o, f, o - f, rounds);
    std::printf("close       Close after the end %.2f ms, in mid-stream %.2f ms (medians)\n",
                bench::Median(closeAtEnd) * 1000, bench::Median(closeMidway) * 1000);
}

// SetPosition to the first block in hand against ffmpeg's own -ss start to
// its first byte, at the same places, side by side.
void SeekLatency(const host::Plugin& exports, const std::string& file, int rounds, int seconds) {
    Session session(exports, Wide(file));
    if (!session.Open()) throw std::runtime_error("Open failed");
    std::vector<double> plugin, alone;
    for (int round = 0; round < rounds; ++round) {
        const int second = seconds * (round % 10 + 1) / 11;
        alone.push_back(bench::TimeFirstByte(WorkerLine(file, std::to_string(second))));
        const auto start = Clock::now();
        DecoderBlockInfo block{};
        if (!session.Seek(int64_t{44100} * second) || !session.Block(block)) throw std::runtime_error("SetPosition failed");
        plugin.push_back(Since(start));
    }
    session.Close();
    const double p = bench::Median(plugin) * 1000;
    const double a = bench::Median(alone) * 1000;
    std::printf("seek        SetPosition to first block %.1f ms   ffmpeg -ss to first byte %.1f ms   more %.1f ms "
                "(medians of %d)\n", p, a, p - a, rounds);
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
    int runs = 11;
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
            OpenAndClose(exports, shortFile, runs * 2);
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
