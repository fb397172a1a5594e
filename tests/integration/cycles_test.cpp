// Many decoders in threads open, decode, seek, close and retag every kind of
// input while quit events hit them at random moments; at the end the
// process has no more descriptors, threads or children than at the start.
// Short by default; FD_CYCLES_MINUTES, FD_CYCLES_THREADS,
// FD_CYCLES_REPORT_SECONDS and FD_CYCLES_RSS_SLACK_MB make it the long soak
// (scripts/soak.sh), which also watches resident memory.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <thread>

#include "cycles.h"
#include "tests/integration/testkit.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

double Setting(const char* name, double fallback) {
    const char* value = std::getenv(name);
    return value ? std::atof(value) : fallback;
}

struct Figures {
    it::Resources resources;
    long rssKiB = -1;
};

Figures Measure() {
    Figures figures{it::CurrentResources()};
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) figures.rssKiB = std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return figures;
}

void Report(const char* when, Clock::time_point began, const Figures& figures, const cycles::Tally& tally) {
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
void FireQuits(cycles::Shared& shared, std::vector<std::unique_ptr<cycles::QuitFifo>>& quits) {
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

TEST(Concurrency, ManyCyclesLeaveNothingBehind) {
    const double minutes = Setting("FD_CYCLES_MINUTES", 0.1);
    const int threadCount = static_cast<int>(Setting("FD_CYCLES_THREADS", 4));
    const auto reportEvery = std::chrono::duration<double>(Setting("FD_CYCLES_REPORT_SECONDS", 60));
    const long rssSlackKiB = static_cast<long>(Setting("FD_CYCLES_RSS_SLACK_MB", 32) * 1024);
    ASSERT_GE(threadCount, 1);
    const it::TempDir dir;
    const host::Plugin plugin(FD_PLUGIN_PATH);
    const std::vector<cycles::Fixture> fixtures = cycles::MakeFixtures(dir.Path());
    std::printf("cycles: %d decoders for %.1f minutes\n", threadCount, minutes);
    cycles::Shared shared{plugin, fixtures, dir.Path()};
    std::vector<std::unique_ptr<cycles::QuitFifo>> quits;
    for (int i = 0; i < threadCount; ++i)
        quits.push_back(std::make_unique<cycles::QuitFifo>(dir.File("quit-" + std::to_string(i))));

    std::thread([] {}).join();   // a sanitizer starts its own thread with the first one: not counted as growth
    const Figures start = Measure();
    const auto began = Clock::now();
    Report("start", began, start, shared.tally);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back(cycles::RunDecoderThread, std::ref(shared), std::ref(*quits[size_t(i)]), 1000u + unsigned(i), i);
    std::thread quitter(FireQuits, std::ref(shared), std::ref(quits));

    const auto end = began + std::chrono::duration<double>(minutes * 60);
    long firstRss = -1, lastRss = -1;
    for (auto next = began + reportEvery; Clock::now() < end;) {
        std::this_thread::sleep_for(200ms);
        if (Clock::now() < next) continue;
        next += std::chrono::duration_cast<Clock::duration>(reportEvery);
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

    EXPECT_EQ(shared.tally.failures, 0u);
    for (const std::string& text : shared.failureTexts) ADD_FAILURE() << text;
    EXPECT_LE(final.resources.descriptors, start.resources.descriptors);
    EXPECT_LE(final.resources.threads, start.resources.threads);
    EXPECT_EQ(final.resources.children, 0);
    EXPECT_LE(lastRss - firstRss, rssSlackKiB) << "resident memory grew from " << firstRss << " KiB";
    EXPECT_GT(shared.tally.decodes, 0u);
    EXPECT_GT(shared.tally.quits, 0u) << "no quit ever hit";
}

}  // namespace
