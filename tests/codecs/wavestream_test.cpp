// The Wave64 header reader and the format record it fills.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "codecs/decoders/ffmpeg/wavestream.h"
#include "transport/exceptions.h"

namespace {

using Bytes = std::vector<uint8_t>;

void PutLE(Bytes& out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

uint64_t GetLE(const uint8_t* at, int bytes) {
    uint64_t value = 0;
    for (int i = bytes - 1; i >= 0; --i) value = (value << 8) | at[i];
    return value;
}

// Only the first four bytes of a GUID carry the name; the rest is noise.
void PutGuid(Bytes& out, const char* name) {
    out.insert(out.end(), name, name + 4);
    for (uint8_t i = 0; i < 12; ++i) out.push_back(static_cast<uint8_t>(0xA0 + i));
}

struct Fmt {
    uint16_t tag = 1, channels = 2;
    uint32_t rate = 44100, avgBytes = 176400;
    uint16_t blockAlign = 4, bits = 16;
};

// A format body of `length` bytes (16 or more); bytes behind the 16 first come from `tail`.
Bytes FormatBody(const Fmt& f, const Bytes& tail = {}) {
    Bytes body;
    PutLE(body, f.tag, 2);
    PutLE(body, f.channels, 2);
    PutLE(body, f.rate, 4);
    PutLE(body, f.avgBytes, 4);
    PutLE(body, f.blockAlign, 2);
    PutLE(body, f.bits, 2);
    body.insert(body.end(), tail.begin(), tail.end());
    return body;
}

Bytes ExtensibleTail(uint16_t extraSize, uint16_t validBits, uint32_t mask, uint16_t subTag) {
    Bytes tail;
    PutLE(tail, extraSize, 2);
    PutLE(tail, validBits, 2);
    PutLE(tail, mask, 4);
    PutLE(tail, subTag, 4);
    const uint8_t base[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    tail.insert(tail.end(), base, base + 12);
    return tail;
}

class Wave64 {
public:
    Wave64() {
        PutGuid(bytes, "riff");
        PutLE(bytes, 0xDEADBEEFull, 8);   // the size of the whole is never looked at
        PutGuid(bytes, "wave");
    }
    // A chunk with its real size and padding to 8.
    Wave64& Chunk(const char* name, const Bytes& body) {
        return ChunkSized(name, body.size() + 24, body, (8 - body.size() % 8) % 8);
    }
    Wave64& ChunkSized(const char* name, uint64_t declared, const Bytes& body, size_t padding) {
        PutGuid(bytes, name);
        PutLE(bytes, declared, 8);
        bytes.insert(bytes.end(), body.begin(), body.end());
        bytes.insert(bytes.end(), padding, 0x55);
        return *this;
    }
    Wave64& Data(uint64_t declaredBody, const Bytes& samples) {
        PutGuid(bytes, "data");
        PutLE(bytes, declaredBody + 24, 8);
        headerEnd = bytes.size();
        bytes.insert(bytes.end(), samples.begin(), samples.end());
        return *this;
    }
    Bytes bytes;
    size_t headerEnd = 0;
};

struct Result {
    clWaveFormat wave;
    DecoderFormat format{};
    uint64_t dataSize = 0;
    Bytes rest;   // what the stream still held behind the header
};

void Read(const Bytes& bytes, Result& result) {
    Qel::streamInMemory stream(bytes.data(), bytes.size());
    std::memset(result.format.wave, 0xCC, sizeof result.format.wave);
    ReadStreamHeader(stream, result.wave, result.format, result.dataSize);
    uint8_t byte;
    while (stream.read(&byte, 1) == 1) result.rest.push_back(byte);
}

void ExpectRefused(const Bytes& bytes) {
    Result result;
    EXPECT_THROW(Read(bytes, result), Qel::invalid_input);
}

const Bytes kSamples = {1, 2, 3, 4, 5, 6, 7, 8};

}  // namespace

TEST(WaveFormat, NewRecordHasUsableDivisors) {
    clWaveFormat wave;
    EXPECT_EQ(wave.Tag(), 0);
    EXPECT_EQ(wave.AvgBytesPerSecond(), 1u);
    EXPECT_EQ(wave.BlockAlign(), 1);
}

TEST(WaveFormat, ShortAncestorsOfTheRecord) {
    Fmt f;
    f.tag = 2;   // not PCM, so the declared values stay visible
    f.channels = 2;
    f.blockAlign = 6;
    f.bits = 12;
    Bytes body = FormatBody(f);

    clWaveFormat wave;
    wave.SetBytes(body.data(), 14);   // bits derived from block align and channels
    EXPECT_EQ(wave.BitsPerSample(), 6 * 8 / 2);
    EXPECT_EQ(wave.ExtraSize(), 0);

    wave.SetBytes(body.data(), 16);
    EXPECT_EQ(wave.BitsPerSample(), 12);
    wave.SetBytes(body.data(), 15);
    EXPECT_EQ(wave.BitsPerSample(), 0);
    wave.SetBytes(body.data(), 17);
    EXPECT_EQ(wave.BitsPerSample(), 0);

    f.channels = 0;
    Bytes noChannels = FormatBody(f);
    wave.SetBytes(noChannels.data(), 14);
    EXPECT_EQ(wave.BitsPerSample(), 16);

    // Zero divisors are never left behind.
    f.avgBytes = 0;
    f.blockAlign = 0;
    Bytes zeros = FormatBody(f);
    wave.SetBytes(zeros.data(), 16);
    EXPECT_EQ(wave.AvgBytesPerSecond(), 1u);
    EXPECT_EQ(wave.BlockAlign(), 1);
}

TEST(WaveFormat, ExtraSizeBeyondTheBytesIsZeroedInPlace) {
    Fmt f;
    Bytes body = FormatBody(f, {22, 0});   // claims 22 extra bytes, has none
    clWaveFormat wave;
    wave.SetBytes(body.data(), static_cast<uint32_t>(body.size()));
    EXPECT_EQ(wave.ExtraSize(), 0);
    EXPECT_EQ(GetLE(body.data() + 16, 2), 0u);
}

TEST(WaveFormat, EffectiveTagLooksThroughTheExtensibleForm) {
    const struct {
        uint16_t subTag;
        uint16_t expected;
    } cases[] = {{1, 1}, {3, 3}, {6, 6}, {7, 7}, {2, 2}, {0x50, 0x50}, {0x55, 0xFFFE}};
    for (const auto& c : cases) {
        Fmt f;
        f.tag = 0xFFFE;
        Bytes body = FormatBody(f, ExtensibleTail(22, 16, 3, c.subTag));
        clWaveFormat wave;
        wave.SetBytes(body.data(), static_cast<uint32_t>(body.size()));
        EXPECT_EQ(wave.EffectiveTag(), c.expected) << "sub-format " << c.subTag;
    }
    // A wrong byte in the base GUID makes it unknown.
    Fmt f;
    f.tag = 0xFFFE;
    Bytes body = FormatBody(f, ExtensibleTail(22, 16, 3, 1));
    body.back() ^= 1;
    clWaveFormat wave;
    wave.SetBytes(body.data(), static_cast<uint32_t>(body.size()));
    EXPECT_EQ(wave.EffectiveTag(), 0xFFFE);
}

TEST(Wave64Header, PcmStopsAtTheFirstSampleByte) {
    Fmt f;
    f.channels = 2;
    f.rate = 48000;
    f.bits = 24;
    f.avgBytes = 12345;   // the worker's word is overruled for PCM
    f.blockAlign = 99;
    Wave64 w;
    w.Chunk("fmt ", FormatBody(f, {0, 0})).Data(kSamples.size(), kSamples);

    Result r;
    Read(w.bytes, r);
    EXPECT_EQ(r.dataSize, kSamples.size());
    EXPECT_EQ(r.rest, kSamples);
    EXPECT_EQ(r.wave.BlockAlign(), 6);
    EXPECT_EQ(r.wave.AvgBytesPerSecond(), 6u * 48000u);
    EXPECT_EQ(GetLE(r.format.wave + 0, 2), 1u);
    EXPECT_EQ(GetLE(r.format.wave + 2, 2), 2u);
    EXPECT_EQ(GetLE(r.format.wave + 4, 4), 48000u);
    EXPECT_EQ(GetLE(r.format.wave + 8, 4), 288000u);
    EXPECT_EQ(GetLE(r.format.wave + 12, 2), 6u);
    EXPECT_EQ(GetLE(r.format.wave + 14, 2), 24u);
    for (size_t i = 16; i < 40; ++i) EXPECT_EQ(r.format.wave[i], 0) << "byte " << i;
}

TEST(Wave64Header, OtherChunksAreSkippedWithTheirPadding) {
    Wave64 w;
    w.Chunk("junk", Bytes(5, 0x77)).Chunk("fmt ", FormatBody(Fmt{}));
    w.Chunk("list", Bytes(13, 0x66));   // 13 bytes and 3 of padding: 16 skipped
    w.Data(1000, kSamples);
    Result r;
    Read(w.bytes, r);
    EXPECT_EQ(r.dataSize, 1000u);
    EXPECT_EQ(r.rest, kSamples);
}

TEST(Wave64Header, FormatChunkSizeBounds) {
    for (uint64_t size : {39u, 65561u}) {
        Wave64 w;
        const size_t body = size - 24;
        w.ChunkSized("fmt ", size, Bytes(body, 0), (8 - body % 8) % 8);
        w.Data(8, kSamples);
        ExpectRefused(w.bytes);
    }

    Wave64 smallest;
    smallest.Chunk("fmt ", FormatBody(Fmt{})).Data(8, kSamples);
    Result r;
    Read(smallest.bytes, r);
    EXPECT_EQ(r.wave.ExtraSize(), 0);
    EXPECT_EQ(r.rest, kSamples);

    // The largest body: an ADPCM record whose extra bytes fill all 65536.
    Fmt adpcm;
    adpcm.tag = 2;
    Bytes tail;
    PutLE(tail, 65536 - 18, 2);
    tail.resize(65536 - 16, 0x42);
    Wave64 largest;
    largest.Chunk("fmt ", FormatBody(adpcm, tail)).Data(8, kSamples);
    Result big;
    Read(largest.bytes, big);
    EXPECT_EQ(big.wave.ExtraSize(), 65518);
    EXPECT_EQ(big.wave.Record()[65535], 0x42);
    EXPECT_EQ(GetLE(big.format.wave + 16, 2), 65518u);   // the value goes to the host...
    for (size_t i = 18; i < 40; ++i) EXPECT_EQ(big.format.wave[i], 0);   // ...the bytes don't
    EXPECT_EQ(big.rest, kSamples);
}

TEST(Wave64Header, ShortFormatBodies) {
    Wave64 w16;
    w16.Chunk("fmt ", FormatBody(Fmt{})).Data(8, kSamples);
    Result r16;
    Read(w16.bytes, r16);
    EXPECT_EQ(r16.wave.ExtraSize(), 0);
    EXPECT_EQ(r16.wave.BitsPerSample(), 16);

    // 18 bytes claiming 22 extra: taken with extra size 0.
    Fmt f;
    f.tag = 0xFFFE;
    Wave64 w18;
    w18.Chunk("fmt ", FormatBody(f, {22, 0})).Data(8, kSamples);
    Result r18;
    Read(w18.bytes, r18);
    EXPECT_EQ(r18.wave.ExtraSize(), 0);
    EXPECT_EQ(r18.wave.EffectiveTag(), 0xFFFE);
    EXPECT_EQ(GetLE(r18.format.wave + 16, 2), 0u);
    EXPECT_EQ(r18.rest, kSamples);
}

TEST(Wave64Header, ExtensiblePcmIsRecomputedAndHandedOverWhole) {
    Fmt f;
    f.tag = 0xFFFE;
    f.channels = 6;
    f.rate = 48000;
    f.bits = 24;
    f.blockAlign = 7;
    f.avgBytes = 1;
    Wave64 w;
    w.Chunk("fmt ", FormatBody(f, ExtensibleTail(22, 20, 0x3F, 1))).Data(64, kSamples);
    Result r;
    Read(w.bytes, r);
    EXPECT_EQ(r.wave.EffectiveTag(), 1);
    EXPECT_EQ(r.wave.BlockAlign(), 18);
    EXPECT_EQ(GetLE(r.format.wave + 0, 2), 0xFFFEu);
    EXPECT_EQ(GetLE(r.format.wave + 8, 4), 18u * 48000u);
    EXPECT_EQ(GetLE(r.format.wave + 12, 2), 18u);
    EXPECT_EQ(GetLE(r.format.wave + 16, 2), 22u);
    EXPECT_EQ(GetLE(r.format.wave + 18, 2), 20u);
    EXPECT_EQ(GetLE(r.format.wave + 20, 4), 0x3Fu);
    EXPECT_EQ(GetLE(r.format.wave + 24, 4), 1u);
    EXPECT_EQ(r.format.wave[39], 0x71);
}

TEST(Wave64Header, AdpcmKeepsItsDeclaredValues) {
    Fmt f;
    f.tag = 2;
    f.channels = 2;
    f.rate = 44100;
    f.avgBytes = 44359;
    f.blockAlign = 2048;
    f.bits = 4;
    Bytes tail;
    PutLE(tail, 32, 2);
    tail.resize(2 + 32, 0x11);
    Wave64 w;
    w.Chunk("fmt ", FormatBody(f, tail)).Data(4096, kSamples);
    Result r;
    Read(w.bytes, r);
    EXPECT_EQ(r.wave.BlockAlign(), 2048);
    EXPECT_EQ(r.wave.AvgBytesPerSecond(), 44359u);
    EXPECT_EQ(GetLE(r.format.wave + 12, 2), 2048u);
    EXPECT_EQ(GetLE(r.format.wave + 16, 2), 32u);
    EXPECT_EQ(r.format.wave[18], 0);
}

TEST(Wave64Header, DataSizesAreTakenAsTheyStand) {
    Wave64 empty;
    empty.Chunk("fmt ", FormatBody(Fmt{})).Data(0, {});
    Result r0;
    Read(empty.bytes, r0);
    EXPECT_EQ(r0.dataSize, 0u);
    EXPECT_TRUE(r0.rest.empty());

    Wave64 endless;
    endless.Chunk("fmt ", FormatBody(Fmt{})).Data(~uint64_t{0} - 24, kSamples);
    Result rMax;
    Read(endless.bytes, rMax);
    EXPECT_EQ(rMax.dataSize, ~uint64_t{0} - 24);
}

TEST(Wave64Header, SecondFormatChunkOverwritesTheFirst) {
    Fmt first;
    first.tag = 2;
    first.blockAlign = 512;
    Bytes firstTail;
    PutLE(firstTail, 4, 2);
    firstTail.resize(6, 9);
    Fmt second;
    second.channels = 1;
    second.rate = 8000;
    second.bits = 8;
    Wave64 w;
    w.Chunk("fmt ", FormatBody(first, firstTail)).Chunk("fmt ", FormatBody(second)).Data(8, kSamples);
    Result r;
    Read(w.bytes, r);
    EXPECT_EQ(r.wave.Tag(), 1);
    EXPECT_EQ(r.wave.ExtraSize(), 0);
    EXPECT_EQ(r.wave.BlockAlign(), 1);
    EXPECT_EQ(GetLE(r.format.wave + 4, 4), 8000u);
    EXPECT_EQ(r.rest, kSamples);
}

TEST(Wave64Header, MalformedHeadersAreRefused) {
    Wave64 good;
    good.Chunk("fmt ", FormatBody(Fmt{})).Chunk("odd ", Bytes(13, 1)).Data(8, kSamples);
    // An end of stream anywhere inside the header.
    for (size_t cut = 0; cut < good.headerEnd; ++cut) {
        Bytes truncated(good.bytes.begin(), good.bytes.begin() + static_cast<long>(cut));
        Result r;
        EXPECT_THROW(Read(truncated, r), Qel::invalid_input) << "cut at " << cut;
    }

    Bytes noRiff = good.bytes;
    noRiff[0] = 'R';
    ExpectRefused(noRiff);
    Bytes noWave = good.bytes;
    noWave[24 + 3] = 'E';
    ExpectRefused(noWave);

    Wave64 tinyChunk;
    tinyChunk.ChunkSized("junk", 23, {}, 0);
    ExpectRefused(tinyChunk.bytes);

    Wave64 dataFirst;
    dataFirst.Data(8, kSamples).Chunk("fmt ", FormatBody(Fmt{}));
    ExpectRefused(dataFirst.bytes);
}
