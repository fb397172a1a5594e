// soak [--minutes M] [--threads N] [--report-seconds S] [--rss-slack-mb MB]
//
// Drives the built plug-in as a busy host does for M minutes (default 30;
// fractions allowed): N decoders (default 8) in N threads open, decode, seek,
// close and retag copies of every fixture kind, while one more thread fires
// each decoder's quit event at random moments. Prints descriptors, threads,
// children and resident memory at the start and every S seconds (default 60).
// Fails (exit 1) on any failure that no quit caused, on samples or audio
// bytes that differ from the reference, on more descriptors, threads or
// children at the end than at the start, and on resident memory that grew by
// more than MB (default 32) between the first report and the last.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <thread>

#include "soak.h"
#include "tests/integration/testkit.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

struct Options {
    double minutes = 30;
    int threads = 8;
    int reportSeconds = 60;
    long rssSlackMb = 32;
};

Options ParseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const char* value = argv[i + 1];
        if (name == "--minutes") options.minutes = std::atof(value);
        else if (name == "--threads") options.threads = std::atoi(value);
        else if (name == "--report-seconds") options.reportSeconds = std::atoi(value);
        else if (name == "--rss-slack-mb") options.rssSlackMb = std::atol(value);
        else throw std::runtime_error("unknown option " + name);
    }
    if ((argc - 1) % 2 != 0) throw std::runtime_error("an option without its value");
    if (options.threads < 1 || options.reportSeconds < 1 || options.minutes <= 0)
        throw std::runtime_error("bad option value");
    return options;
}

struct Figures {
    it::Resources resources;
    long rssKiB = -1;   // resident memory
};

Figures Measure() {
    Figures figures{it::CurrentResources()};
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) figures.rssKiB = std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return figures;
}

void Report(const char* when, Clock::time_point began, const Figures& figures, const soak::Tally& tally) {
    const auto count = [](const std::atomic<uint64_t>& n) { return static_cast<unsigned long long>(n); };
    std::printf("%-6s %6.1f min  fds %3d  threads %3d  children %2d  rss %7ld KiB  | opens %llu decodes %llu "
                "seeks %llu retags %llu deletes %llu quits %llu failures %llu\n",
                when, std::chrono::duration<double>(Clock::now() - began).count() / 60, figures.resources.descriptors,
                figures.resources.threads, figures.resources.children, figures.rssKiB, count(tally.opens),
                count(tally.decodes), count(tally.seeks), count(tally.retags), count(tally.deletes),
                count(tally.quits), count(tally.failures));
    std::fflush(stdout);
}

// Sets a random decoder's quit event every 20 to 700 ms.
void FireQuits(soak::Shared& shared, std::vector<std::unique_ptr<soak::QuitFifo>>& quits) {
    std::mt19937 random(12345);
    while (!shared.stop) {
        std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution<int>(20, 700)(random)));
        quits[std::uniform_int_distribution<size_t>(0, quits.size() - 1)(random)]->Set();
    }
}

// Threads may take a moment to go (the worker reaper); waits up to 5 s.
Figures SettledFigures(const Figures& start) {
    it::ChildrenAfter(5000);
    Figures now;
    it::WaitUntil([&] {
        now = Measure();
        return now.resources.threads <= start.resources.threads &&
               now.resources.descriptors <= start.resources.descriptors;
    }, 5000);
    return now;
}

int Soak(const Options& options) {
    const it::TempDir dir;
    const host::Plugin plugin(FD_PLUGIN_PATH);
    const std::vector<soak::Fixture> fixtures = soak::MakeFixtures(dir.Path());
    std::printf("soak: %d decoders for %.1f minutes over", options.threads, options.minutes);
    for (const soak::Fixture& fixture : fixtures) std::printf(" %s%s", fixture.name.c_str(), fixture.retag ? "(retag)" : "");
    std::printf("\n");
    soak::Shared shared{plugin, fixtures, dir.Path()};
    std::vector<std::unique_ptr<soak::QuitFifo>> quits;
    for (int i = 0; i < options.threads; ++i)
        quits.push_back(std::make_unique<soak::QuitFifo>(dir.File("quit-" + std::to_string(i))));

    std::thread([] {}).join();   // a sanitizer starts its own thread with the first one: not counted as growth
    const Figures start = Measure();
    const auto began = Clock::now();
    Report("start", began, start, shared.tally);
    std::vector<std::thread> threads;
    for (int i = 0; i < options.threads; ++i)
        threads.emplace_back(soak::RunDecoderThread, std::ref(shared), std::ref(*quits[size_t(i)]), 1000u + unsigned(i), i);
    std::thread quitter(FireQuits, std::ref(shared), std::ref(quits));

    const auto end = began + std::chrono::duration<double>(options.minutes * 60);
    long firstRss = -1, lastRss = -1;
    for (auto next = began + std::chrono::seconds(options.reportSeconds); Clock::now() < end;) {
        std::this_thread::sleep_for(200ms);
        if (Clock::now() < next) continue;
        next += std::chrono::seconds(options.reportSeconds);
        const Figures now = Measure();
        if (firstRss < 0) firstRss = now.rssKiB;
        lastRss = now.rssKiB;
        Report("run", began, now, shared.tally);
    }
    shared.stop = true;
    quitter.join();
    for (std::thread& thread : threads) thread.join();
    const Figures final = SettledFigures(start);
    Report("end", began, final, shared.tally);

    int status = shared.tally.failures != 0 ? 1 : 0;
    for (const std::string& text : shared.failureTexts) std::printf("FAILURE: %s\n", text.c_str());
    const auto check = [&status](bool failed, const std::string& text) {
        if (failed) std::printf("FAILURE: %s\n", text.c_str());
        status = failed ? 1 : status;
    };
    check(final.resources.descriptors > start.resources.descriptors ||
              final.resources.threads > start.resources.threads || final.resources.children > 0,
          "descriptors, threads or children grew");
    check(firstRss >= 0 && lastRss - firstRss > options.rssSlackMb * 1024,
          "resident memory grew from " + std::to_string(firstRss) + " to " + std::to_string(lastRss) + " KiB");
    check(shared.tally.decodes == 0 || shared.tally.quits == 0, "nothing was decoded or no quit ever hit");
    std::printf("soak: %s\n", status == 0 ? "PASSED" : "FAILED");
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Soak(ParseOptions(argc, argv));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return 2;
    }
}
