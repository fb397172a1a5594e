// The Matroska reader over arbitrary file bytes: it answers, never crashes,
// and every picture it hands out is made of bytes the file holds. Then the
// input steers seeks, skips and reads of a reading stream over a fixed file of
// random bytes, across its 64 KiB window's edges and up to the end: each read
// gives the file's bytes, each position is right, a read past the end fails.

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "codecs/decoders/ffmpeg/qel-matroska/streamimpl.h"
#include "fuzz/scratchfile.h"

namespace {

void WalkTheWindow(const uint8_t* data, size_t size) {
    static ScratchFile scratch(".bin");
    static const std::string bytes = [] {
        std::mt19937 random(11);
        std::string random200k(200000, '\0');
        for (char& byte : random200k) byte = static_cast<char>(random());
        scratch.Fill(reinterpret_cast<const uint8_t*>(random200k.data()), random200k.size());
        return random200k;
    }();
    streamImpl stream(clString::FromUtf8(scratch.Path()));
    Require(stream.Open(clFile::kRead));
    stream.m_range = {0, bytes.size()};
    uint64_t at = 0;
    for (size_t i = 0; i + 3 <= size; i += 3) {
        const uint32_t kind = data[i] % 8, word = data[i + 1] << 8 | data[i + 2];
        const uint64_t amount = kind == 0 ? word * 3ull : word % 300;
        std::string got(amount, '\0');
        if (kind == 1) {
            stream.Seek(at = data[i + 1] % 2 ? 65536 - word % 8 : word * bytes.size() / 65535);
        } else if (at + amount > bytes.size()) {
            bool failed = false;
            try {
                stream.Read(got.data(), amount);
            } catch (const EBML::ParseError&) {
                failed = true;
            }
            Require(failed);
            stream.Seek(at);
        } else {
            kind == 2 ? stream.Skip(amount) : stream.Read(got.data(), amount);
            Require(kind == 2 || got == bytes.substr(at, amount));
            at += amount;
        }
        Require(stream.Tell() == at);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScratchFile scratch(".mka");
    scratch.Fill(data, size);
    IDTags tags;
    MatroskaTags::Read(clString::FromUtf8(scratch.Path()), tags, nullptr);
    for (int i = 0; i < tags.Count(); ++i) Require(tags[i].Data.Size() <= size);
    WalkTheWindow(data, size);
    return 0;
}
