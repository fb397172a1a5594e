// The Wave64 header reader on arbitrary bytes: it either refuses them with
// invalid_input or leaves a format whose divisors are usable.

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
    Require(wave.BlockAlign() != 0);
    Require(wave.AvgBytesPerSecond() != 0);
    Require(std::memcmp(format.wave, wave.Record(), 16) == 0);
    uint16_t extraSize;
    std::memcpy(&extraSize, format.wave + 16, 2);
    Require(extraSize == wave.ExtraSize());
    return 0;
}
