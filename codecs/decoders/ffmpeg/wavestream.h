#pragma once
// The Wave64 header on the worker's output and the format record it carries.

#include <cstdint>

#include "codecs/decoders/ffmpeg/records.h"
#include "support/clBuffer.h"
#include "transport/streams.h"

// A WAVEFORMATEX record (or one of its shorter ancestors), normalised so that
// average bytes per second and block align are never 0.
class clWaveFormat {
public:
    clWaveFormat();
    clWaveFormat(const clWaveFormat&) = delete;
    clWaveFormat& operator=(const clWaveFormat&) = delete;

    void SetRecord(const uint8_t* record);
    void SetBytes(uint8_t* bytes, uint32_t length);   // may zero the caller's extra size
    uint16_t EffectiveTag() const;

    const uint8_t* Record() const { return current_; }
    uint16_t Tag() const;
    uint16_t Channels() const;
    uint32_t SamplesPerSecond() const;
    uint32_t AvgBytesPerSecond() const;
    uint16_t BlockAlign() const;
    uint16_t BitsPerSample() const;
    uint16_t ExtraSize() const;

private:
    clBuffer storage_;
    uint8_t inlineRecord_[18] = {};
    uint8_t* current_ = inlineRecord_;
};

// Reads the header up to the first sample byte; fills `wave`, `format.wave`
// and `dataSize`. Raises Qel::invalid_input on anything unexpected.
void ReadStreamHeader(Qel::streamIn& stream, clWaveFormat& wave, DecoderFormat& format,
                      uint64_t& dataSize);
