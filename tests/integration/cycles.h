#pragma once
// The cycles run: decoders in threads driving the plug-in as a busy host does,
// with quit events fired at random moments, while the process's descriptors,
// threads, children and resident memory are watched.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "host/plugin.h"
#include "tests/integration/quitfifo.h"

namespace cycles {

// One kind of input: its file, its decoded samples as a reference, and
// whether its tags can be written.
struct Fixture {
    std::string name;
    std::string path;
    std::string samples;
    uint32_t blockAlign = 4;
    size_t audioBytes = 0;   // the leading file bytes a tag write must keep (0: check the samples only)
    bool retag = false;
};

// Generated with ffmpeg into `dir`, each with ffmpeg's own decode.
std::vector<Fixture> MakeFixtures(const std::string& dir);

struct Tally {
    std::atomic<uint64_t> opens{0}, decodes{0}, seeks{0}, retags{0}, deletes{0}, quits{0}, failures{0};
};

// What every thread shares: the fixtures, the counts, the failure list.
struct Shared {
    const host::Plugin& plugin;
    const std::vector<Fixture>& fixtures;
    std::string dir;
    std::atomic<bool> stop{false};
    Tally tally{};
    std::mutex mutex{};
    std::vector<std::string> failureTexts{};
    void Fail(const std::string& text);
};

using it::QuitFifo;

// One decoder thread's loop until `shared.stop`.
void RunDecoderThread(Shared& shared, QuitFifo& quit, unsigned seed, int index);

}  // namespace cycles
