// The Wave64 header reader and the format record it fills. Malformed headers
// are refused in the fuzz replay (fuzz/regressions/wavestream_fuzz).

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "codecs/decoders/ffmpeg/wavestream.h"

namespace {

using Bytes = std::vector<uint8_t>;

void PutLE(Bytes& out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

struct Fmt {
    uint16_t tag = 1, channels = 2;
    uint32_t rate = 44100, avgBytes = 176400;
    uint16_t blockAlign = 4, bits = 16;
    Bytes tail = {};   // the bytes behind the first 16
};

Bytes Body(const Fmt& f) {
    Bytes body;
    for (auto [value, size] : {std::pair<uint64_t, int>{f.tag, 2}, {f.channels, 2}, {f.rate, 4}, {f.avgBytes, 4},
                               {f.blockAlign, 2}, {f.bits, 2}})
        PutLE(body, value, size);
    body.insert(body.end(), f.tail.begin(), f.tail.end());
    return body;
}

Bytes ExtensibleTail(uint16_t validBits, uint32_t mask, uint16_t subTag) {
    Bytes tail;
    for (auto [value, size] : {std::pair<uint64_t, int>{22, 2}, {validBits, 2}, {mask, 4}, {subTag, 4}}) PutLE(tail, value, size);
    for (uint8_t b : {0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}) tail.push_back(b);
    return tail;
}

// An extra-size field of `extra` followed by `extra` bytes of 0x11.
Bytes ExtraTail(uint16_t extra) {
    Bytes tail = {static_cast<uint8_t>(extra), static_cast<uint8_t>(extra >> 8)};
    tail.resize(2u + extra, 0x11);
    return tail;
}

class Wave64 {
public:
    Wave64() {
        Guid("riff");
        PutLE(bytes, 0xDEADBEEFull, 8);   // the size of the whole is never looked at
        Guid("wave");
    }
    Wave64& Chunk(const char* name, const Bytes& body) {
        Guid(name);
        PutLE(bytes, body.size() + 24, 8);
        bytes.insert(bytes.end(), body.begin(), body.end());
        bytes.insert(bytes.end(), (8 - body.size() % 8) % 8, 0x55);
        return *this;
    }
    Wave64& Format(const Fmt& f) { return Chunk("fmt ", Body(f)); }
    Wave64& Data(uint64_t declaredBody, const Bytes& samples) {
        Guid("data");
        PutLE(bytes, declaredBody + 24, 8);
        bytes.insert(bytes.end(), samples.begin(), samples.end());
        return *this;
    }
    Bytes bytes;

private:
    // Only the first four bytes of a GUID carry the name; the rest is noise.
    void Guid(const char* name) {
        bytes.insert(bytes.end(), name, name + 4);
        for (uint8_t i = 0; i < 12; ++i) bytes.push_back(static_cast<uint8_t>(0xA0 + i));
    }
};

const Bytes kSamples = {1, 2, 3, 4, 5, 6, 7, 8};

// The record the host gets: `f` in 40 bytes, zero-filled.
Bytes Handed(const Fmt& f) {
    Bytes record = Body(f);
    record.resize(40, 0);
    return record;
}

}  // namespace

// (That no zero divisor is left behind: the fuzz target's replay.)
TEST(WaveFormat, EffectiveTag) {
    clWaveFormat wave;
    for (auto [subTag, expected] : {std::pair<uint16_t, uint16_t>{1, 1}, {3, 3}, {6, 6}, {7, 7}, {2, 2},
                                    {0x50, 0x50}, {0x55, 0xFFFE}}) {
        Bytes body = Body({.tag = 0xFFFE, .tail = ExtensibleTail(16, 3, subTag)});
        wave.SetBytes(body.data(), static_cast<uint32_t>(body.size()));
        EXPECT_EQ(wave.EffectiveTag(), expected) << "sub-format " << subTag;
        body.back() ^= 1;   // a wrong byte in the base GUID makes it unknown
        wave.SetBytes(body.data(), static_cast<uint32_t>(body.size()));
        EXPECT_EQ(wave.EffectiveTag(), 0xFFFE) << "sub-format " << subTag;
    }
}

// What the host is handed, and what the reader keeps for itself.
TEST(Wave64Header, RecordsHandedOver) {
    Bytes bigTail = ExtraTail(65536 - 18);   // 65560: an ADPCM record whose extra bytes fill all 65536
    bigTail.back() = 0x42;
    const Fmt adpcm{.tag = 2, .avgBytes = 44359, .blockAlign = 2048, .bits = 4, .tail = ExtraTail(32)};
    const Fmt extensible{.tag = 0xFFFE, .channels = 6, .rate = 48000, .avgBytes = 1, .blockAlign = 7, .bits = 24,
                         .tail = ExtensibleTail(20, 0x3F, 1)};
    Fmt extensibleFixed = extensible;   // what the host gets: the block and rate of 6 channels of 24 bits
    extensibleFixed.avgBytes = 18 * 48000, extensibleFixed.blockAlign = 18;
    const struct { const char* name; Bytes bytes, record; uint16_t extraSize; uint64_t dataSize = 8; } rows[] = {
        // Odd sizes, 5 bytes and 3 of padding, 13 and 3; the worker's 24-bit values are overruled.
        {"PCM recomputed, other chunks skipped",
         Wave64().Chunk("junk", Bytes(5, 0x77)).Format({.rate = 48000, .avgBytes = 1, .blockAlign = 99, .bits = 24, .tail = {0, 0}})
             .Chunk("list", Bytes(13, 0x66)).Data(1000, kSamples).bytes,
         Handed({.rate = 48000, .avgBytes = 288000, .blockAlign = 6, .bits = 24}), 0, 1000},
        {"65536 extra bytes", Wave64().Format({.tag = 2, .tail = bigTail}).Data(8, kSamples).bytes,
         Handed({.tag = 2, .tail = {0xEE, 0xFF}}), 65518},
        {"18 bytes claiming 22 extra", Wave64().Format({.tag = 0xFFFE, .tail = {22, 0}}).Data(8, kSamples).bytes,
         Handed({.tag = 0xFFFE, .tail = {0, 0}}), 0},
        {"extensible PCM, handed whole", Wave64().Format(extensible).Data(8, kSamples).bytes, Body(extensibleFixed), 22},
        {"ADPCM keeps what it declares; its extra bytes stay home", Wave64().Format(adpcm).Data(8, kSamples).bytes,
         Handed({.tag = 2, .avgBytes = 44359, .blockAlign = 2048, .bits = 4, .tail = {32, 0}}), 32},
        {"a second format chunk rules",
         Wave64().Format({.tag = 2, .blockAlign = 512, .tail = ExtraTail(4)}).Format({.channels = 1, .rate = 8000, .bits = 8})
             .Data(8, kSamples).bytes,
         Handed({.channels = 1, .rate = 8000, .avgBytes = 8000, .blockAlign = 1, .bits = 8}), 0},
        {"no data", Wave64().Format({}).Data(0, {}).bytes, Handed({}), 0, 0},
        {"the largest data size", Wave64().Format({}).Data(~uint64_t{0} - 24, kSamples).bytes, Handed({}), 0, ~uint64_t{0} - 24},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Qel::streamInMemory stream(row.bytes.data(), row.bytes.size());
        clWaveFormat wave;
        DecoderFormat format;
        std::memset(&format, 0xCC, sizeof format);
        uint64_t dataSize = 0;
        ReadStreamHeader(stream, wave, format, dataSize);
        Bytes rest;
        for (uint8_t byte; stream.read(&byte, 1) == 1;) rest.push_back(byte);
        EXPECT_EQ(Bytes(format.wave, format.wave + 40), row.record);
        EXPECT_EQ(wave.ExtraSize(), row.extraSize);
        EXPECT_EQ(dataSize, row.dataSize);
        EXPECT_EQ(rest, row.dataSize == 0 ? Bytes{} : kSamples) << "the stream stops at the first sample";
        EXPECT_EQ(0, std::memcmp(wave.Record(), row.record.data(), 16)) << "the reader's own record differs";
        if (row.extraSize == 65518) { EXPECT_EQ(wave.Record()[65535], 0x42); }
    }
}
