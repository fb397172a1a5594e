#pragma once
// A WAV file around the decoded sample bytes. The header goes out first with
// placeholder sizes and a 28-byte "JUNK" chunk; at the end a seekable output
// gets its real sizes, and one that grew past 4 GiB turns into RF64 in
// place: "RIFF" becomes "RF64" and the JUNK chunk its "ds64". An output that
// can't seek keeps 0xFFFFFFFF as its sizes: length unknown.

#include <cstdint>

#include "codecs/decoders/ffmpeg/records.h"
#include "host/outputfile.h"

namespace host {

class WavWriter {
public:
    WavWriter(OutputFile& out, const DecoderFormat& format);
    void Write(const void* samples, uint32_t size);
    // Pads the data chunk to an even size and patches the sizes when it can.
    void Finish();

private:
    OutputFile& out_;
    uint16_t blockAlign_;
    uint64_t dataSizeOffset_ = 0;
    uint64_t dataBytes_ = 0;
};

}  // namespace host
