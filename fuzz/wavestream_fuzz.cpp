// The Wave64 header reader on arbitrary bytes: it either refuses them with
// invalid_input, or the bytes it took walk as a whole header (the walk below
// is its own) and the format it leaves has usable divisors.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "codecs/decoders/ffmpeg/wavestream.h"
#include "transport/exceptions.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

uint64_t U64(const uint8_t* p) {
    uint64_t value = 0;
    for (int i = 7; i >= 0; --i) value = value << 8 | p[i];
    return value;
}

// Whether the first `taken` bytes are "riff", a size, "wave", chunks of at
// least their own header (a format chunk of 40 to 65560 bytes among them),
// and the header of a data chunk last.
bool WholeHeader(const uint8_t* data, size_t taken) {
    if (taken < 40 || std::memcmp(data, "riff", 4) != 0 || std::memcmp(data + 24, "wave", 4) != 0) return false;
    bool format = false;
    for (size_t at = 40; at + 24 <= taken;) {
        const uint64_t size = U64(data + at + 16);
        if (size < 24) return false;
        if (std::memcmp(data + at, "data", 4) == 0) return format && at + 24 == taken;
        const bool isFormat = std::memcmp(data + at, "fmt ", 4) == 0;
        if (isFormat && (size < 40 || size > 65560)) return false;
        format = format || isFormat;
        if (size - 24 > taken) return false;
        const uint64_t step = 24 + (size - 24 + 7) / 8 * 8;   // bodies are padded to 8
        if (step > taken - at) return false;
        at += static_cast<size_t>(step);
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Qel::streamInMemory stream(data, size);
    clWaveFormat wave;
    DecoderFormat format{};
    uint64_t dataSize = 0;
    try {
        ReadStreamHeader(stream, wave, format, dataSize);
    } catch (const Qel::invalid_input&) {
        return 0;
    }
    size_t left = 0;
    for (uint8_t byte; stream.read(&byte, 1) == 1;) ++left;
    Require(WholeHeader(data, size - left));
    Require(wave.BlockAlign() != 0);
    Require(wave.AvgBytesPerSecond() != 0);
    Require(std::memcmp(format.wave, wave.Record(), 16) == 0);
    uint16_t extraSize;
    std::memcpy(&extraSize, format.wave + 16, 2);
    Require(extraSize == wave.ExtraSize());
    return 0;
}
