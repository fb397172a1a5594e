// The Wave64 header reader and the format record it fills.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "codecs/decoders/ffmpeg/wavestream.h"
#include "transport/exceptions.h"

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
                               {f.blockAlign, 2}, {f.bits, 2}}) {
        PutLE(body, value, size);
    }
    body.insert(body.end(), f.tail.begin(), f.tail.end());
    return body;
}

Bytes ExtensibleTail(uint16_t validBits, uint32_t mask, uint16_t subTag) {
    Bytes tail;
    PutLE(tail, 22, 2);
    PutLE(tail, validBits, 2);
    PutLE(tail, mask, 4);
    PutLE(tail, subTag, 4);
    for (uint8_t b : {0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}) tail.push_back(b);
    return tail;
}

// An extra-size field of `extra` followed by `extra` bytes of 0x11.
Bytes ExtraTail(uint16_t extra) {
    Bytes tail;
    PutLE(tail, extra, 2);
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
        return ChunkSized(name, body.size() + 24, body, (8 - body.size() % 8) % 8);
    }
    Wave64& Format(const Fmt& f) { return Chunk("fmt ", Body(f)); }
    Wave64& ChunkSized(const char* name, uint64_t declared, const Bytes& body, size_t padding) {
        Guid(name);
        PutLE(bytes, declared, 8);
        bytes.insert(bytes.end(), body.begin(), body.end());
        bytes.insert(bytes.end(), padding, 0x55);
        return *this;
    }
    Wave64& Data(uint64_t declaredBody, const Bytes& samples) {
        Guid("data");
        PutLE(bytes, declaredBody + 24, 8);
        headerEnd = bytes.size();
        bytes.insert(bytes.end(), samples.begin(), samples.end());
        return *this;
    }
    Bytes bytes;
    size_t headerEnd = 0;

private:
    // Only the first four bytes of a GUID carry the name; the rest is noise.
    void Guid(const char* name) {
        bytes.insert(bytes.end(), name, name + 4);
        for (uint8_t i = 0; i < 12; ++i) bytes.push_back(static_cast<uint8_t>(0xA0 + i));
    }
};

const Bytes kSamples = {1, 2, 3, 4, 5, 6, 7, 8};

struct Result {
    clWaveFormat wave;
    DecoderFormat format{};
    uint64_t dataSize = 0;
    Bytes rest;   // what the stream still held behind the header
    Bytes Record() const { return Bytes(format.wave, format.wave + sizeof format.wave); }
};

// The record the host gets: `f` in 40 bytes, zero-filled.
Bytes Handed(const Fmt& f) {
    Bytes record = Body(f);
    record.resize(40, 0);
    return record;
}

// On the heap: the record can't be copied or moved.
std::unique_ptr<Result> Read(const Bytes& bytes) {
    auto result = std::make_unique<Result>();
    Qel::streamInMemory stream(bytes.data(), bytes.size());
    std::memset(result->format.wave, 0xCC, sizeof result->format.wave);
    ReadStreamHeader(stream, result->wave, result->format, result->dataSize);
    for (uint8_t byte; stream.read(&byte, 1) == 1;) result->rest.push_back(byte);
    return result;
}

std::unique_ptr<Result> ReadWithSamples(Wave64& w) { return Read(w.Data(kSamples.size(), kSamples).bytes); }

}  // namespace

TEST(WaveFormat, DivisorsAndEffectiveTag) {
    clWaveFormat wave;
    Bytes zeros = Body({.tag = 2, .avgBytes = 0, .blockAlign = 0});
    wave.SetBytes(zeros.data(), 16);
    EXPECT_EQ(wave.AvgBytesPerSecond(), 1u) << "a zero divisor is never left behind";
    EXPECT_EQ(wave.BlockAlign(), 1);

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

TEST(Wave64Header, PcmIsRecomputedOtherChunksSkippedUpToTheFirstSample) {
    Wave64 w;
    // Odd sizes: 5 bytes and 3 of padding, 13 and 3; the worker's 24-bit values are overruled.
    w.Chunk("junk", Bytes(5, 0x77)).Format({.rate = 48000, .avgBytes = 1, .blockAlign = 99, .bits = 24, .tail = {0, 0}});
    w.Chunk("list", Bytes(13, 0x66));
    const auto r = Read(w.Data(1000, kSamples).bytes);
    EXPECT_EQ(r->dataSize, 1000u);
    EXPECT_EQ(r->rest, kSamples);
    EXPECT_EQ(r->wave.BlockAlign(), 6);
    EXPECT_EQ(r->wave.AvgBytesPerSecond(), 6u * 48000u);
    EXPECT_EQ(r->Record(), Handed({.rate = 48000, .avgBytes = 288000, .blockAlign = 6, .bits = 24}));
}

TEST(Wave64Header, FormatChunkSizeBounds) {
    for (uint64_t size : {39u, 65561u}) {
        EXPECT_THROW(ReadWithSamples(Wave64().ChunkSized("fmt ", size, Bytes(size - 24, 0), (8 - (size - 24) % 8) % 8)),
                     Qel::invalid_input) << size;
    }
    const auto r16 = ReadWithSamples(Wave64().Format({}));   // 40: a 16-byte body
    EXPECT_EQ(r16->wave.ExtraSize(), 0);
    EXPECT_EQ(r16->wave.BitsPerSample(), 16);
    EXPECT_EQ(r16->rest, kSamples);

    // 65560: an ADPCM record whose extra bytes fill all 65536.
    Bytes tail = ExtraTail(65536 - 18);
    tail.back() = 0x42;
    const auto big = ReadWithSamples(Wave64().Format({.tag = 2, .tail = tail}));
    EXPECT_EQ(big->wave.ExtraSize(), 65518);
    EXPECT_EQ(big->wave.Record()[65535], 0x42);
    EXPECT_EQ(big->Record(), Handed({.tag = 2, .tail = {0xEE, 0xFF}})) << "the extra size goes, not the bytes";
    EXPECT_EQ(big->rest, kSamples);
}

TEST(Wave64Header, ExtraBytesShortExtensibleAndAdpcm) {
    // 18 bytes claiming 22 extra: taken with extra size 0.
    const auto r18 = ReadWithSamples(Wave64().Format({.tag = 0xFFFE, .tail = {22, 0}}));
    EXPECT_EQ(r18->wave.ExtraSize(), 0);
    EXPECT_EQ(r18->wave.EffectiveTag(), 0xFFFE);
    EXPECT_EQ(r18->Record(), Handed({.tag = 0xFFFE, .tail = {0, 0}}));
    EXPECT_EQ(r18->rest, kSamples);

    // Extensible PCM: block align and rate recomputed, the record handed over whole.
    const auto r = ReadWithSamples(Wave64().Format({.tag = 0xFFFE, .channels = 6, .rate = 48000, .avgBytes = 1,
                                              .blockAlign = 7, .bits = 24, .tail = ExtensibleTail(20, 0x3F, 1)}));
    EXPECT_EQ(r->wave.EffectiveTag(), 1);
    EXPECT_EQ(r->wave.BlockAlign(), 18);
    EXPECT_EQ(r->Record(), Body({.tag = 0xFFFE, .channels = 6, .rate = 48000, .avgBytes = 18 * 48000,
                                 .blockAlign = 18, .bits = 24, .tail = ExtensibleTail(20, 0x3F, 1)}));

    // ADPCM keeps what it declares; its extra bytes stay home.
    const auto a =
        ReadWithSamples(Wave64().Format({.tag = 2, .avgBytes = 44359, .blockAlign = 2048, .bits = 4, .tail = ExtraTail(32)}));
    EXPECT_EQ(a->wave.BlockAlign(), 2048);
    EXPECT_EQ(a->wave.AvgBytesPerSecond(), 44359u);
    EXPECT_EQ(a->Record(), Handed({.tag = 2, .avgBytes = 44359, .blockAlign = 2048, .bits = 4, .tail = {32, 0}}));
}

TEST(Wave64Header, DataSizesAndASecondFormatChunk) {
    const auto r0 = Read(Wave64().Format({}).Data(0, {}).bytes);
    EXPECT_EQ(r0->dataSize, 0u);
    EXPECT_TRUE(r0->rest.empty());
    EXPECT_EQ(Read(Wave64().Format({}).Data(~uint64_t{0} - 24, kSamples).bytes)->dataSize, ~uint64_t{0} - 24);

    const auto r = ReadWithSamples(
        Wave64().Format({.tag = 2, .blockAlign = 512, .tail = ExtraTail(4)}).Format({.channels = 1, .rate = 8000, .bits = 8}));
    EXPECT_EQ(r->wave.ExtraSize(), 0);
    EXPECT_EQ(r->Record(), Handed({.channels = 1, .rate = 8000, .avgBytes = 8000, .blockAlign = 1, .bits = 8}));
    EXPECT_EQ(r->rest, kSamples);
}

TEST(Wave64Header, MalformedHeadersAreRefused) {
    Wave64 good;
    good.Format({}).Chunk("odd ", Bytes(13, 1)).Data(8, kSamples);
    std::vector<Bytes> bad;
    for (size_t cut = 0; cut < good.headerEnd; ++cut) bad.emplace_back(good.bytes.begin(), good.bytes.begin() + cut);
    bad.push_back(good.bytes);
    bad.back()[0] = 'R';
    bad.push_back(good.bytes);
    bad.back()[24 + 3] = 'E';
    bad.push_back(Wave64().ChunkSized("junk", 23, {}, 0).bytes);
    bad.push_back(Wave64().Data(8, kSamples).Format({}).bytes);
    for (size_t i = 0; i < bad.size(); ++i) EXPECT_THROW(Read(bad[i]), Qel::invalid_input) << "case " << i;
}
