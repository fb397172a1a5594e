// Quit latency: how long a blocked call of the plug-in takes to return after
// the host sets its quit event, from each place where a call blocks. For each
// point the event is fired at a random moment while the call waits, N times
// (1000), and the time from the event to the call's return is kept; worst,
// median and 99th percentile are printed. The target is 100 ms.
//
//   worker start   Open of a real file through ffmpeg, before the first sample
//   header read    Open, with a worker that is up and writes nothing
//   block read     DecodeBlock, with a worker that stalls in mid-stream
//   error stream   Open, with a worker that writes audio but no dump
//
// Each sample has a decoder of its own, destroyed at once (which kills its
// worker), so a stalled worker costs no stop time.
//
// quit_bench [--quits N]

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "codecs/decoders/ffmpeg/exports.h"
#include "host/plugin.h"
#include "tests/integration/quitfifo.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double Ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

std::u16string Wide(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }


// Sets the event at `when` unless the call returned first; tells when it fired.
class Firing {
public:
    Firing(it::QuitFifo& event, Clock::time_point when)
        : thread_([this, &event, when] {
              while (!done_ && Clock::now() < when) std::this_thread::sleep_for(std::chrono::microseconds(200));
              if (done_) return;
              fired_ = Clock::now();
              event.Set();
          }) {}
    Firing(const Firing&) = delete;
    Firing& operator=(const Firing&) = delete;
    // The call has returned: stops the thread; the moment it fired, if it did.
    std::optional<Clock::time_point> Stop() {
        done_ = true;
        thread_.join();
        if (fired_ == Clock::time_point{}) return std::nullopt;
        return fired_;
    }

private:
    std::atomic<bool> done_{false};
    Clock::time_point fired_{};
    std::thread thread_;
};

// One decoder that watches the event; destroyed (with its worker) at once.
class Session {
public:
    Session(const host::Plugin& plugin, const it::QuitFifo& event) : plugin_(plugin) {
        const DecoderCreateInfo info{};
        decoder_ = plugin_.Create(&info);
        if (decoder_ == nullptr) throw std::runtime_error("Create failed");
        const std::u16string name = Wide(event.Path());
        DecoderParam param{};
        param.text = name.c_str();
        if (plugin_.Set(decoder_, u"EventQuit", &param) == 0) throw std::runtime_error("EventQuit refused");
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { plugin_.Destroy(decoder_); }

    bool Open(const std::string& path) {
        const std::u16string wide = Wide(path);
        DecoderOpenInfo info{};
        info.path = wide.c_str();
        return plugin_.Open(decoder_, &info) != 0;
    }
    bool Block() {
        DecoderBlockInfo block{};
        return plugin_.DecodeBlock(decoder_, &block) != 0;
    }

private:
    const host::Plugin& plugin_;
    void* decoder_ = nullptr;
};

struct Point {
    const char* name;
    const host::Plugin* plugin;
    std::string input;
    int blocksFirst;      // DecodeBlock calls that return before the one that blocks (-1: Open blocks)
    double windowMs;      // the event fires uniformly within this time after the call starts
    bool mayFinish;       // the call can end by itself (a real worker): such a run is not counted
};

struct Figures {
    std::vector<double> latencies;
    int early = 0;   // calls that ended before the event or in spite of it, not counted
};

Figures Measure(const Point& point, it::QuitFifo& event, int quits, std::mt19937& random) {
    Figures figures;
    std::uniform_real_distribution<double> delay(0.0, point.windowMs);
    while (static_cast<int>(figures.latencies.size()) < quits) {
        event.Reset();
        Session session(*point.plugin, event);
        if (point.blocksFirst >= 0) {
            if (!session.Open(point.input)) throw std::runtime_error(std::string(point.name) + ": Open failed");
            for (int i = 0; i < point.blocksFirst; ++i) {
                if (!session.Block()) throw std::runtime_error(std::string(point.name) + ": a block failed");
            }
        }
        const auto start = Clock::now();
        Firing firing(event, start + std::chrono::duration_cast<Clock::duration>(
                                         std::chrono::duration<double, std::milli>(delay(random))));
        const bool done = point.blocksFirst >= 0 ? session.Block() : session.Open(point.input);
        const auto returned = Clock::now();
        const std::optional<Clock::time_point> fired = firing.Stop();
        if (!fired || (done && point.mayFinish)) {
            ++figures.early;
            continue;
        }
        if (done && !point.mayFinish) throw std::runtime_error(std::string(point.name) + ": the call ended by itself");
        figures.latencies.push_back(Ms(returned - *fired));
    }
    return figures;
}

double Percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    const auto index = static_cast<size_t>(p * static_cast<double>(values.size() - 1) + 0.5);
    return values[std::min(index, values.size() - 1)];
}

// Median time of an undisturbed Open of `input`: the window for the worker start.
double OpenTimeMs(const host::Plugin& plugin, const it::QuitFifo& event, const std::string& input) {
    std::vector<double> times;
    for (int i = 0; i < 21; ++i) {
        Session session(plugin, event);
        const auto start = Clock::now();
        if (!session.Open(input)) throw std::runtime_error("the real worker cannot open " + input);
        times.push_back(Ms(Clock::now() - start));
    }
    return Percentile(times, 0.5);
}

void MakeTree(const std::string& root, const std::string& worker) {
    fs::create_directories(root + "/plugins");
    fs::copy_file(FD_PLUGIN_PATH, root + "/plugins/ffmpeg_decoder.so");
    fs::create_symlink(worker, root + "/ffmpeg-lgpl");
}

void WriteText(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

int Run(int quits) {
    char pattern[] = "/tmp/fd-quit-bench-XXXXXX";
    if (::mkdtemp(pattern) == nullptr) throw std::runtime_error("no temporary folder");
    const std::string dir = pattern;
    struct Cleanup {
        std::string dir;
        ~Cleanup() { fs::remove_all(dir); }
    } cleanup{dir};

    MakeTree(dir + "/fake", FD_FAKE_WORKER);
    const host::Plugin real(FD_PLUGIN_PATH);
    const host::Plugin fake(dir + "/fake/plugins/ffmpeg_decoder.so");
    it::QuitFifo event(dir + "/quit");

    const std::string tone = dir + "/tone.flac";
    const std::string make = std::string(FD_FFMPEG_PATH) +
                             " -v error -f lavfi -i sine=frequency=440:duration=5 -ac 2 -y " + tone;
    if (std::system(make.c_str()) != 0) throw std::runtime_error("ffmpeg could not make " + tone);
    WriteText(dir + "/silent.w64", "hang 1\n");
    WriteText(dir + "/stall.w64", "frames 441000\nstall 50000\n");
    WriteText(dir + "/nodump.w64", "nodump 1\nstall 0\n");

    const double openMs = OpenTimeMs(real, event, tone);
    const Point points[] = {
        {"worker start", &real, tone, -1, openMs, true},
        {"header read", &fake, dir + "/silent.w64", -1, 30.0, false},
        {"block read", &fake, dir + "/stall.w64", 3, 30.0, false},
        {"error stream", &fake, dir + "/nodump.w64", -1, 30.0, false},
    };
    std::mt19937 random(20261122);
    std::printf("quit latency over %d quits per point (undisturbed Open through ffmpeg: %.1f ms)\n", quits, openMs);
    std::printf("%-14s %10s %10s %10s %8s\n", "point", "median ms", "p99 ms", "worst ms", "early");
    bool met = true;
    for (const Point& point : points) {
        const Figures figures = Measure(point, event, quits, random);
        const double worst = *std::max_element(figures.latencies.begin(), figures.latencies.end());
        std::printf("%-14s %10.2f %10.2f %10.2f %8d\n", point.name, Percentile(figures.latencies, 0.5),
                    Percentile(figures.latencies, 0.99), worst, figures.early);
        std::fflush(stdout);
        met = met && worst <= 100.0;
    }
    std::printf("target: every quit within 100 ms: %s\n", met ? "met" : "NOT MET");
    return met ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    int quits = 1000;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--quits") == 0) quits = std::max(1, std::atoi(argv[i + 1]));
    }
    try {
        return Run(quits);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quit_bench: %s\n", error.what());
        return 2;
    }
}
