#include "codecs/decoders/ffmpeg/wavestream.h"

#include <cstring>
#include <vector>

#include "transport/exceptions.h"

namespace {

// Offsets inside a WAVEFORMATEX / WAVEFORMATEXTENSIBLE record.
constexpr size_t kTagAt = 0;
constexpr size_t kChannelsAt = 2;
constexpr size_t kRateAt = 4;
constexpr size_t kAvgBytesAt = 8;
constexpr size_t kBlockAlignAt = 12;
constexpr size_t kBitsAt = 14;
constexpr size_t kExtraSizeAt = 16;
constexpr size_t kSubFormatAt = 24;

constexpr size_t kBaseRecordSize = 18;
constexpr uint16_t kExtensibleTag = 0xFFFE;
constexpr uint16_t kExtensibleExtraSize = 22;
constexpr uint16_t kPcmTag = 1;
constexpr uint16_t kFloatTag = 3;

constexpr uint64_t kChunkHeaderSize = 24;
constexpr uint64_t kMinFormatChunk = 40;      // a body of 16 bytes
constexpr uint64_t kMaxFormatChunk = 65560;   // a body of 65536 bytes

uint16_t GetU16(const uint8_t* at) {
    return static_cast<uint16_t>(at[0] | (at[1] << 8));
}

uint32_t GetU32(const uint8_t* at) {
    return static_cast<uint32_t>(at[0]) | (static_cast<uint32_t>(at[1]) << 8) |
           (static_cast<uint32_t>(at[2]) << 16) | (static_cast<uint32_t>(at[3]) << 24);
}

uint64_t GetU64(const uint8_t* at) {
    return static_cast<uint64_t>(GetU32(at)) | (static_cast<uint64_t>(GetU32(at + 4)) << 32);
}

void PutU16(uint8_t* at, uint16_t value) {
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8);
}

void PutU32(uint8_t* at, uint32_t value) {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

// The sub-format GUIDs of the extensible form share one base; only the first
// word, the plain format tag, differs.
bool IsSubFormat(const uint8_t* guid, uint16_t tag) {
    static constexpr uint8_t kBaseTail[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                                              0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    return GetU32(guid) == tag && std::memcmp(guid + 4, kBaseTail, sizeof kBaseTail) == 0;
}

bool HasName(const uint8_t* guid, const char* name) { return std::memcmp(guid, name, 4) == 0; }

uint64_t RoundUpTo8(uint64_t length) { return (length + 7) & ~uint64_t{7}; }

// What the host gets: 40 bytes, the extensible part only when it is complete.
void CopyToHostFormat(const clWaveFormat& wave, DecoderFormat& format) {
    const uint8_t* record = wave.Record();
    if (wave.Tag() == kExtensibleTag && wave.ExtraSize() >= kExtensibleExtraSize) {
        std::memcpy(format.wave, record, sizeof format.wave);
        return;
    }
    std::memset(format.wave, 0, sizeof format.wave);
    std::memcpy(format.wave, record, kExtraSizeAt + 2);
}

void ReadFormatChunk(Qel::streamIn& stream, uint64_t chunkSize, clWaveFormat& wave) {
    if (chunkSize < kMinFormatChunk || chunkSize > kMaxFormatChunk) throw Qel::invalid_input();
    const uint64_t bodyLength = chunkSize - kChunkHeaderSize;
    std::vector<uint8_t> body(static_cast<size_t>(bodyLength));
    stream.readExact(body.data(), body.size());
    wave.SetBytes(body.data(), static_cast<uint32_t>(body.size()));
    stream.skipExact(RoundUpTo8(bodyLength) - bodyLength);
}

}  // namespace

clWaveFormat::clWaveFormat() {
    // The all-zero record, normalised: divisors of 1.
    PutU32(inlineRecord_ + kAvgBytesAt, 1);
    PutU16(inlineRecord_ + kBlockAlignAt, 1);
}

uint16_t clWaveFormat::Tag() const { return GetU16(current_ + kTagAt); }
uint16_t clWaveFormat::Channels() const { return GetU16(current_ + kChannelsAt); }
uint32_t clWaveFormat::SamplesPerSecond() const { return GetU32(current_ + kRateAt); }
uint32_t clWaveFormat::AvgBytesPerSecond() const { return GetU32(current_ + kAvgBytesAt); }
uint16_t clWaveFormat::BlockAlign() const { return GetU16(current_ + kBlockAlignAt); }
uint16_t clWaveFormat::BitsPerSample() const { return GetU16(current_ + kBitsAt); }
uint16_t clWaveFormat::ExtraSize() const { return GetU16(current_ + kExtraSizeAt); }

uint16_t clWaveFormat::EffectiveTag() const {
    const uint16_t tag = Tag();
    if (tag != kExtensibleTag || ExtraSize() < kExtensibleExtraSize) return tag;
    static constexpr uint16_t kKnown[] = {1, 3, 6, 7, 2, 0x50};
    for (uint16_t known : kKnown) {
        if (IsSubFormat(current_ + kSubFormatAt, known)) return known;
    }
    return kExtensibleTag;
}

void clWaveFormat::SetRecord(const uint8_t* record) {
    if (record == current_) return;
    const uint16_t extraSize = GetU16(record + kExtraSizeAt);
    if (extraSize == 0) {
        std::memmove(inlineRecord_, record, kExtraSizeAt);
        PutU16(inlineRecord_ + kExtraSizeAt, 0);
        current_ = inlineRecord_;
    } else {
        // A fresh block: `record` may point into the old one.
        clBuffer fresh;
        fresh.Assign(record, static_cast<uint32_t>(extraSize) + kBaseRecordSize);
        storage_ = std::move(fresh);
        current_ = storage_.Data();
    }

    const uint16_t effective = EffectiveTag();
    if (effective == kPcmTag || effective == kFloatTag) {
        const uint32_t bits = BitsPerSample();
        const uint16_t blockAlign = static_cast<uint16_t>(bits * Channels() / 8);
        PutU16(current_ + kBlockAlignAt, blockAlign);
        PutU32(current_ + kAvgBytesAt, static_cast<uint32_t>(blockAlign) * SamplesPerSecond());
    }
    if (AvgBytesPerSecond() == 0) PutU32(current_ + kAvgBytesAt, 1);
    if (BlockAlign() == 0) PutU16(current_ + kBlockAlignAt, 1);
}

void clWaveFormat::SetBytes(uint8_t* bytes, uint32_t length) {
    if (length >= kBaseRecordSize) {
        if (GetU16(bytes + kExtraSizeAt) + kBaseRecordSize > length) PutU16(bytes + kExtraSizeAt, 0);
        SetRecord(bytes);
        return;
    }
    // One of the shorter ancestors of the record.
    uint8_t record[kBaseRecordSize] = {};
    if (length >= kBitsAt) std::memcpy(record, bytes, kBitsAt);
    if (length == kBitsAt + 2) std::memcpy(record + kBitsAt, bytes + kBitsAt, 2);
    if (length == kBitsAt) {
        const uint16_t channels = GetU16(record + kChannelsAt);
        const uint16_t blockAlign = GetU16(record + kBlockAlignAt);
        PutU16(record + kBitsAt, channels == 0 ? 16 : static_cast<uint16_t>(blockAlign * 8 / channels));
    }
    SetRecord(record);
}

void ReadStreamHeader(Qel::streamIn& stream, clWaveFormat& wave, DecoderFormat& format,
                      uint64_t& dataSize) {
    uint8_t guid[16];
    stream.readExact(guid, sizeof guid);
    if (!HasName(guid, "riff")) throw Qel::invalid_input();
    stream.skipExact(8);
    stream.readExact(guid, sizeof guid);
    if (!HasName(guid, "wave")) throw Qel::invalid_input();

    bool formatSeen = false;
    for (;;) {
        uint8_t sizeBytes[8];
        stream.readExact(guid, sizeof guid);
        stream.readExact(sizeBytes, sizeof sizeBytes);
        const uint64_t chunkSize = GetU64(sizeBytes);
        if (chunkSize < kChunkHeaderSize) throw Qel::invalid_input();
        const uint64_t bodyLength = chunkSize - kChunkHeaderSize;

        if (HasName(guid, "fmt ")) {
            ReadFormatChunk(stream, chunkSize, wave);
            formatSeen = true;
        } else if (HasName(guid, "data")) {
            // The declared size is taken as it stands; the pipe's end stops reading anyway.
            dataSize = bodyLength;
            if (!formatSeen) throw Qel::invalid_input();
            CopyToHostFormat(wave, format);
            return;
        } else {
            stream.skipExact(RoundUpTo8(bodyLength));
        }
    }
}
