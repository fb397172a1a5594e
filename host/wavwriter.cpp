#include "host/wavwriter.h"

#include <cstring>
#include <string>

#include "host/littleendian.h"

namespace host {
namespace {

constexpr uint16_t kTagPcm = 1;
constexpr uint16_t kTagExtensible = 0xFFFE;
constexpr uint32_t kUnknown = 0xFFFFFFFF;
constexpr uint32_t kDs64Body = 28;   // RIFF size, data size, sample count (u64 each), table length

void PutU16(std::string& out, uint16_t value) {
    out += static_cast<char>(value & 0xFF);
    out += static_cast<char>(value >> 8);
}

void PutU32(std::string& out, uint32_t value) {
    for (int i = 0; i < 4; ++i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

void PutU64(std::string& out, uint64_t value) {
    for (int i = 0; i < 8; ++i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

// The format chunk's body: the extensible record whole, plain PCM in its
// 16-byte form, anything else as WAVEFORMATEX without extra bytes (the host
// record carries none).
std::string FormatBody(const DecoderFormat& format) {
    const uint8_t* wave = format.wave;
    const uint16_t tag = U16At(wave);
    const uint16_t extraSize = U16At(wave + 16);
    if (tag == kTagExtensible && extraSize >= 22) {
        std::string body(reinterpret_cast<const char*>(wave), 40);
        body[16] = 22;
        body[17] = 0;
        return body;
    }
    std::string body(reinterpret_cast<const char*>(wave), 16);
    if (tag != kTagPcm) PutU16(body, 0);
    return body;
}

}  // namespace

WavWriter::WavWriter(OutputFile& out, const DecoderFormat& format)
    : out_(out), blockAlign_(U16At(format.wave + 12)) {
    const std::string fmt = FormatBody(format);
    std::string header = "RIFF";
    PutU32(header, kUnknown);
    header += "WAVEJUNK";
    PutU32(header, kDs64Body);
    header.append(kDs64Body, '\0');
    header += "fmt ";
    PutU32(header, static_cast<uint32_t>(fmt.size()));
    header += fmt;
    header += "data";
    dataSizeOffset_ = header.size();
    PutU32(header, kUnknown);
    out_.Write(header.data(), header.size());
}

void WavWriter::Write(const void* samples, uint32_t size) {
    out_.Write(samples, size);
    dataBytes_ += size;
}

void WavWriter::Finish() {
    const uint64_t pad = dataBytes_ & 1;
    if (pad) out_.Write("", 1);
    if (!out_.Seekable()) return;
    const uint64_t riffSize = dataSizeOffset_ + 4 + dataBytes_ + pad - 8;
    if (riffSize <= kUnknown) {
        std::string size;
        PutU32(size, static_cast<uint32_t>(riffSize));
        out_.WriteAt(4, size.data(), 4);
        size.clear();
        PutU32(size, static_cast<uint32_t>(dataBytes_));
        out_.WriteAt(dataSizeOffset_, size.data(), 4);
        return;
    }
    std::string head = "RF64";
    PutU32(head, kUnknown);
    head += "WAVEds64";
    PutU32(head, kDs64Body);
    PutU64(head, riffSize);
    PutU64(head, dataBytes_);
    PutU64(head, blockAlign_ ? dataBytes_ / blockAlign_ : 0);
    PutU32(head, 0);
    out_.WriteAt(0, head.data(), head.size());
}

}  // namespace host
