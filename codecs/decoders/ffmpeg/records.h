#pragma once
// The binary records that cross the plug-in's border, laid out byte for byte
// as the host expects them (several fields are unaligned). Text pointers are
// UTF-16LE: char16_t, never wchar_t.

#include <cstddef>
#include <cstdint>

#pragma pack(push, 1)

struct DecoderCreateInfo {
    uint64_t errorLog;       // 0 or all ones: none
    uint64_t reserved;
    uint64_t traceLog;       // 0 or all ones: none
};

struct DecoderParam {
    uint32_t index;
    int32_t value;
    uint8_t untouched1[16];
    const char16_t* text;
    const char16_t* text2;
    uint8_t untouched2[8];
    const void* data;
};

struct DecoderFormat {
    uint8_t wave[40];        // WAVEFORMATEXTENSIBLE layout
    uint32_t bitrate;
    int64_t durationMs;
    uint8_t reserved[12];
};

struct DecoderOpenInfo {
    const char16_t* path;
    uint32_t flags;
    DecoderFormat format;
    uint32_t reserved;
    const void* tags;
    uint32_t tagsSize;
    const void* info;
    uint32_t infoSize;
};

struct DecoderBlockInfo {
    const void* samples;
    uint32_t bytes;
    DecoderFormat format;
    uint32_t reserved;
    uint64_t position;
    int32_t endOfStream;
};

#pragma pack(pop)

enum : uint32_t {
    kOpenExternalPackets = 2,
    kOpenWantTags = 8,
    kOpenWantInfo = 16,
};

static_assert(sizeof(DecoderCreateInfo) == 24);
static_assert(offsetof(DecoderCreateInfo, traceLog) == 16);

static_assert(offsetof(DecoderParam, index) == 0);
static_assert(offsetof(DecoderParam, value) == 4);
static_assert(offsetof(DecoderParam, text) == 24);
static_assert(offsetof(DecoderParam, text2) == 32);
static_assert(offsetof(DecoderParam, data) == 48);
static_assert(sizeof(DecoderParam) == 56);

static_assert(offsetof(DecoderFormat, bitrate) == 40);
static_assert(offsetof(DecoderFormat, durationMs) == 44);
static_assert(offsetof(DecoderFormat, reserved) == 52);
static_assert(sizeof(DecoderFormat) == 64);

static_assert(offsetof(DecoderOpenInfo, flags) == 8);
static_assert(offsetof(DecoderOpenInfo, format) == 12);
static_assert(offsetof(DecoderOpenInfo, reserved) == 76);
static_assert(offsetof(DecoderOpenInfo, tags) == 80);
static_assert(offsetof(DecoderOpenInfo, tagsSize) == 88);
static_assert(offsetof(DecoderOpenInfo, info) == 92);
static_assert(offsetof(DecoderOpenInfo, infoSize) == 100);
static_assert(sizeof(DecoderOpenInfo) == 104);

static_assert(offsetof(DecoderBlockInfo, bytes) == 8);
static_assert(offsetof(DecoderBlockInfo, format) == 12);
static_assert(offsetof(DecoderBlockInfo, reserved) == 76);
static_assert(offsetof(DecoderBlockInfo, position) == 80);
static_assert(offsetof(DecoderBlockInfo, endOfStream) == 88);
static_assert(sizeof(DecoderBlockInfo) == 92);
