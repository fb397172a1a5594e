// The cycles run's inputs: one short file of every kind the host meets, made by
// ffmpeg, and each one's samples as ffmpeg itself decodes them.

#include <stdexcept>

#include "cycles.h"
#include "tests/integration/testkit.h"

namespace cycles {
namespace {

const std::vector<std::string> kTone = {"-f", "lavfi", "-i", "sine=frequency=440:duration=3:sample_rate=44100",
                                        "-ac", "2", "-metadata", "title=Cycles title", "-metadata", "artist=Cycles artist"};

// The bytes in front of an APE tag at the end of `bytes` (all of them when
// there is none): what a tag write must leave as it is.
size_t BytesBeforeApe(const std::string& bytes) {
    if (bytes.size() < 32 || bytes.compare(bytes.size() - 32, 8, "APETAGEX") != 0) return bytes.size();
    const size_t footer = bytes.size() - 32;
    const size_t tag = size_t{it::U32At(bytes, footer + 12)} + ((it::U32At(bytes, footer + 20) & 0x80000000u) ? 32 : 0);
    if (tag > bytes.size()) throw std::runtime_error("fixture with a damaged APE tag");
    return bytes.size() - tag;
}

}  // namespace

std::vector<Fixture> MakeFixtures(const std::string& dir) {
    const struct {
        const char* name;
        std::vector<std::string> args;   // between the sources and the output
        bool retag;
    } recipes[] = {
        {"tagged.tta", {"-c:a", "tta"}, true},
        {"plain.tta", {"-c:a", "tta", "-map_metadata", "-1"}, true},
        {"tone.dts", {"-c:a", "dca", "-strict", "-2", "-ar", "44100"}, true},
        {"tone.mka", {"-c:a", "flac"}, true},
        {"video.mkv", {"-c:a", "pcm_s16le", "-c:v", "mjpeg", "-shortest"}, true},
        {"tone.ac3", {"-c:a", "ac3"}, false},
        {"tone.au", {}, false},
        {"tone.voc", {}, false},
        {"tone.ts", {"-c:a", "mp2"}, false},
    };
    std::vector<Fixture> fixtures;
    for (const auto& recipe : recipes) {
        Fixture fixture{recipe.name, dir + "/" + recipe.name, {}, 4, 0, recipe.retag};
        std::vector<std::string> args = kTone;
        if (fixture.name == "video.mkv") {
            args.insert(args.begin(), {"-f", "lavfi", "-i", "testsrc=size=32x24:rate=5:duration=3"});
            args.insert(args.end(), {"-map", "0:v", "-map", "1:a"});
        }
        args.insert(args.end(), recipe.args.begin(), recipe.args.end());
        args.push_back(fixture.path);
        it::Ffmpeg(args);
        const it::Wave64 reference = it::ReferenceDecode(fixture.path);
        fixture.samples = reference.data;
        fixture.blockAlign = it::U16At(reference.format, 12);
        if (fixture.name.ends_with(".tta") || fixture.name.ends_with(".dts"))
            fixture.audioBytes = BytesBeforeApe(it::ReadFile(fixture.path));
        fixtures.push_back(std::move(fixture));
    }
    return fixtures;
}

}  // namespace cycles
