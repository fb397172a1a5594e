// Decoders in threads open, decode, seek and close every kind of input while quit events hit at
// random: every decode gives ffmpeg's samples, and at the end nothing is left behind. Short by
// default; FD_CYCLES_MINUTES, _THREADS, _REPORT_SECONDS, _RSS_SLACK_MB make it the long soak.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <thread>

#include "host/text.h"
#include "plugindriver.h"

namespace {

using Clock = std::chrono::steady_clock;

double Setting(const char* name, double fallback) {
    const char* value = std::getenv(name);
    return value ? std::atof(value) : fallback;
}

// One kind of input with ffmpeg's decode of it.
struct Fixture { std::string name, path, samples; uint32_t blockAlign; };

std::vector<Fixture> MakeFixtures(const it::TempDir& dir) {
    const std::pair<const char*, std::vector<std::string>> recipes[] = {   // what goes between source and output
        {"tagged.tta", {"-c:a", "tta"}}, {"plain.tta", {"-c:a", "tta", "-map_metadata", "-1"}},
        {"tone.dts", {"-c:a", "dca", "-strict", "-2", "-ar", "44100"}}, {"tone.mka", {"-c:a", "flac"}},
        {"video.mkv", {"-f", "lavfi", "-i", "testsrc=size=32x24:rate=5:duration=3", "-map", "1:v", "-map", "0:a",
                       "-c:a", "pcm_s16le", "-c:v", "mjpeg", "-shortest"}},
        {"tone.ac3", {"-c:a", "ac3"}}, {"tone.au", {}}, {"tone.voc", {}}, {"tone.ts", {"-c:a", "mp2"}},
    };
    std::vector<Fixture> fixtures;
    for (const auto& [name, middle] : recipes) {
        const std::string path = dir.File(name);
        std::vector<std::string> args = {"-f", "lavfi", "-i", "sine=frequency=440:duration=3:sample_rate=44100"};
        args.insert(args.end(), middle.begin(), middle.end());
        args.insert(args.end(), {"-ac", "2", "-metadata", "title=Cycles title", "-metadata", "artist=Cycles artist", path});
        it::Ffmpeg(args);
        const it::Wave64 reference = it::ReferenceDecode(path);
        fixtures.push_back({name, path, reference.data, it::U16At(reference.format, 12)});
    }
    return fixtures;
}

struct Shared {
    const std::vector<Fixture>& fixtures;
    std::atomic<bool> stop{false};
    std::atomic<unsigned long long> decodes{0}, seeks{0}, quits{0}, failures{0};
};

// One decoder thread: a decoder lives for a few jobs (so Create and Destroy churn too); each job decodes or seeks. A
// failed call is the quit's doing only when the event is set, which is then reset as a host does.
class Driver {
public:
    Driver(Shared& shared, it::QuitFifo& quit, int index)
        : shared_(shared), quit_(quit), random_(1000u + unsigned(index)), index_(index), fixture_(&shared.fixtures.front()) {}

    void Run() {
        while (!shared_.stop) {
            it::TestDecoder decoder(it::Plugin(), quit_.Path());
            for (int job = Pick(1, 12); job > 0 && !shared_.stop; --job) {
                fixture_ = &shared_.fixtures[size_t(Pick(0, int(shared_.fixtures.size()) - 1))];
                DecoderParam ask{};   // the tables are shared by all decoders
                ask.index = 18;
                if (decoder.Get(u"Decodes", ask) != 1 || host::WideView(ask.text) != u".awb") Fail(decoder, "Decodes answered wrong");
                Job(decoder, Pick(0, 9) >= 6);
                decoder.Close();
            }
        }
    }

private:
    int Pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }

    bool QuitCaused() {
        if (!quit_.IsSet()) return false;
        quit_.Reset();
        ++shared_.quits;
        return true;
    }

    void Fail(const it::TestDecoder& decoder, const std::string& what) {
        if (++shared_.failures <= 50)
            ADD_FAILURE() << "thread " << index_ << ", " << fixture_->name << ": " << what << "; error log: " << decoder.ErrorLog();
    }

    void Refused(const it::TestDecoder& decoder, const std::string& what) { if (!QuitCaused()) Fail(decoder, what); }

    // Opens, then decodes to the end or seeks a few times. A quit in mid-stream is reset and the decode goes on: the
    // samples must still be the reference's, byte for byte.
    void Job(it::TestDecoder& decoder, bool seek) {
        if (!decoder.Open(fixture_->path, seek ? 0 : kOpenWantTags | kOpenWantInfo)) return Refused(decoder, "Open failed");
        for (std::string samples; !seek;) {
            DecoderBlockInfo block{};
            if (!decoder.DecodeBlock(block)) {
                if (QuitCaused()) continue;
                return Fail(decoder, "DecodeBlock failed after " + std::to_string(samples.size()) + " bytes");
            }
            samples.append(static_cast<const char*>(block.samples), block.bytes);
            if (!block.endOfStream && block.bytes != 0) continue;
            ++shared_.decodes;
            if (samples != fixture_->samples) Fail(decoder, "samples differ, " + std::to_string(samples.size()) + " bytes");
            return;
        }
        for (int seeks = Pick(1, 4); seeks > 0 && !shared_.stop; --seeks, ++shared_.seeks) {
            const int64_t target = Pick(0, int(fixture_->samples.size() / fixture_->blockAlign) - 1);
            if (!decoder.SetPosition(target)) {
                Refused(decoder, "SetPosition(" + std::to_string(target) + ") failed");
                continue;
            }
            DecoderBlockInfo block{};
            for (int blocks = Pick(1, 5); blocks > 0 && !block.endOfStream; --blocks) {
                if (decoder.DecodeBlock(block)) continue;
                Refused(decoder, "DecodeBlock after a seek failed");
                break;
            }
        }
    }

    Shared& shared_;
    it::QuitFifo& quit_;
    std::mt19937 random_;
    int index_;
    const Fixture* fixture_;
};

struct Figures {
    it::Resources resources = it::CurrentResources();
    long rssKiB = -1;
    Figures() {
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);)
            if (line.rfind("VmRSS:", 0) == 0) rssKiB = std::strtol(line.c_str() + 6, nullptr, 10);
    }
    void Report(const char* when, Clock::time_point began, const Shared& s) const {
        std::printf("%-6s %6.1f min  fds %3d  threads %3d  children %2d  rss %7ld KiB  | decodes %llu seeks %llu "
                    "quits %llu failures %llu\n", when, std::chrono::duration<double>(Clock::now() - began).count() / 60,
                    resources.descriptors, resources.threads, resources.children, rssKiB, s.decodes.load(),
                    s.seeks.load(), s.quits.load(), s.failures.load());
        std::fflush(stdout);
    }
};

TEST(Concurrency, ManyCyclesLeaveNothingBehind) {
    const double minutes = Setting("FD_CYCLES_MINUTES", 0.1);
    const int threadCount = static_cast<int>(Setting("FD_CYCLES_THREADS", 4));
    const auto reportEvery = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(Setting("FD_CYCLES_REPORT_SECONDS", 60)));
    const long rssSlackKiB = static_cast<long>(Setting("FD_CYCLES_RSS_SLACK_MB", 32) * 1024);
    ASSERT_GE(threadCount, 1);
    const it::TempDir dir;
    it::Plugin();   // loaded before the start figures
    const std::vector<Fixture> fixtures = MakeFixtures(dir);
    std::printf("cycles: %d decoders for %.1f minutes\n", threadCount, minutes);
    Shared shared{fixtures};
    std::vector<std::unique_ptr<it::QuitFifo>> quits;
    for (int i = 0; i < threadCount; ++i) quits.push_back(std::make_unique<it::QuitFifo>(dir.File("quit-" + std::to_string(i))));

    std::thread([] {}).join();   // a sanitizer starts its own thread with the first one: not counted as growth
    const Figures start;
    const auto began = Clock::now();
    start.Report("start", began, shared);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&shared, &quits, i] {
            try {
                Driver(shared, *quits[size_t(i)], i).Run();
            } catch (const std::exception& error) {
                ++shared.failures;
                ADD_FAILURE() << "thread " << i << " ended: " << error.what();
            }
        });
    }
    // Sets a random decoder's quit event every 20 to 700 ms.
    threads.emplace_back([&shared, &quits] {
        std::mt19937 random(12345);
        while (!shared.stop) {
            std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution<int>(20, 700)(random)));
            quits[std::uniform_int_distribution<size_t>(0, quits.size() - 1)(random)]->Set();
        }
    });
    long firstRss = -1, lastRss = -1;
    for (auto next = began + reportEvery; Clock::now() < began + std::chrono::duration<double>(minutes * 60);) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        if (Clock::now() < next) continue;
        next += reportEvery;
        const Figures now;
        lastRss = now.rssKiB;
        firstRss = firstRss < 0 ? lastRss : firstRss;
        now.Report("run", began, shared);
    }
    shared.stop = true;
    for (std::thread& thread : threads) thread.join();
    it::ChildrenAfter(5000);   // threads may take a moment to go (the worker reaper)
    Figures final;
    it::WaitUntil([&] {
        final = Figures();
        return final.resources.threads <= start.resources.threads && final.resources.descriptors <= start.resources.descriptors;
    }, 5000);
    final.Report("end", began, shared);

    EXPECT_EQ(shared.failures, 0u);
    EXPECT_LE(final.resources.descriptors, start.resources.descriptors);
    EXPECT_LE(final.resources.threads, start.resources.threads);
    EXPECT_EQ(final.resources.children, 0);
    EXPECT_LE(lastRss - firstRss, rssSlackKiB) << "resident memory grew from " << firstRss << " KiB";
    EXPECT_GT(shared.decodes, 0u);
    EXPECT_GT(shared.quits, 0u) << "no quit ever hit";
}

}  // namespace
