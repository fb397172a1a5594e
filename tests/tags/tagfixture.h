#pragma once
// What the tag engine tests share: hand-built tags around stand-in audio,
// a short text form of a collection, and a capture of the error log.

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/clFile.h"
#include "support/clLog.h"
#include "tags/idtags.h"
#include "tests/integration/testkit.h"

namespace tagtest {

using it::ReadFile;
using it::TempDir;
using it::WriteFile;

// Stand-in audio: letters, so that no tag magic shows up in it by chance.
inline std::string AudioBytes(size_t count) {
    std::string bytes(count, '\0');
    uint32_t x = 2654435761u;
    for (char& c : bytes) {
        x = x * 1103515245u + 12345u;
        c = static_cast<char>('a' + (x >> 16) % 26);
    }
    return bytes;
}

inline std::string U32(uint32_t value) {
    std::string bytes(4, '\0');
    for (int i = 0; i < 4; ++i) bytes[static_cast<size_t>(i)] = static_cast<char>(value >> (8 * i));
    return bytes;
}

inline std::string ApeFrameBytes(uint32_t version, uint32_t size, uint32_t count, uint32_t flags) {
    return "APETAGEX" + U32(version) + U32(size) + U32(count) + U32(flags) + std::string(8, '\0');
}

struct ApeItem {
    ApeItem(std::string k, std::string v, uint32_t f = 0) : key(std::move(k)), value(std::move(v)), flags(f) {}
    std::string Bytes() const { return U32(static_cast<uint32_t>(value.size())) + U32(flags) + key + '\0' + value; }
    std::string key, value;
    uint32_t flags;   // 2: binary
};

// A tag as the format lays it out; `count` and `size` below 0 are computed.
struct ApeTag {
    ApeTag(std::initializer_list<ApeItem> i = {}, uint32_t v = 2000, bool h = true) : items(i), version(v), header(h) {}
    std::string Bytes() const {
        std::string body;
        for (const ApeItem& item : items) body += item.Bytes();
        auto tagSize = static_cast<uint32_t>(size >= 0 ? size : static_cast<int64_t>(body.size() + 32));
        auto itemCount = static_cast<uint32_t>(count >= 0 ? count : static_cast<int64_t>(items.size()));
        std::string head = header ? ApeFrameBytes(version, tagSize, itemCount, 0xA0000000u) : "";
        return head + body + ApeFrameBytes(version, tagSize, itemCount, header ? 0x80000000u : 0);
    }
    // A copy whose header and footer state `statedSize` and `statedCount`.
    ApeTag Stating(int64_t statedSize, int64_t statedCount = -1) const {
        ApeTag tag = *this;
        tag.size = statedSize;
        tag.count = statedCount;
        return tag;
    }
    std::vector<ApeItem> items;
    uint32_t version;
    bool header;
    int64_t count = -1, size = -1;
};

// An ID3v1 tag; a track number makes it ID3v1.1 with a comment of 28 bytes.
inline std::string Id3v1(const std::string& title, const std::string& artist = "", const std::string& album = "",
                         const std::string& year = "", const std::string& comment = "", int track = 0,
                         int genre = 255) {
    const auto Field = [](std::string text, size_t width) {
        text.resize(width, '\0');
        return text;
    };
    std::string tag = "TAG" + Field(title, 30) + Field(artist, 30) + Field(album, 30) + Field(year, 4);
    tag += track == 0 ? Field(comment, 30) : Field(comment, 28) + '\0' + static_cast<char>(track);
    return tag + static_cast<char>(genre);
}

inline clString S(const std::string& utf8) { return clString::FromUtf8(utf8); }
inline std::string Utf8(const clString& text) { return text.ToUtf8(); }
inline std::string DataOf(const IDTag& tag) {
    return std::string(reinterpret_cast<const char*>(tag.Data.Data()), tag.Data.Size());
}

// "Name=Value;" per entry, CR shown as "|", data as "[n bytes]".
inline std::string Describe(const IDTags& tags) {
    std::string out;
    for (int i = 0; i < tags.Count(); ++i) {
        std::string value = Utf8(tags[i].Value);
        for (char& c : value) c = c == '\r' ? '|' : c;
        out += Utf8(tags[i].Name) + "=" + value;
        if (!tags[i].Data.Empty()) out += "[" + std::to_string(tags[i].Data.Size()) + " bytes]";
        out += ";";
    }
    return out;
}

inline IDTags Tags(std::initializer_list<std::pair<const char*, std::string>> entries) {
    IDTags tags;
    for (const auto& [name, value] : entries) tags.Add(S(name), S(value));
    return tags;
}

inline clFile OpenFile(const std::string& path, uint32_t access = clFile::kReadWrite) {
    clFile file(S(path));
    if (!file.Open(access)) throw std::runtime_error("cannot open " + path);
    return file;
}

// Runs `op` on an engine of type E over the file at `path`, and gives its result.
template <class E, class Op>
auto RunEngine(const std::string& path, Op op, uint32_t access = clFile::kReadWrite) {
    clFile file = OpenFile(path, access);
    E engine(file);
    return op(engine);
}

// What an engine of type E reads from `path`, as Describe shows it.
template <class E>
std::string ReadWith(const std::string& path, bool wantVersion = true) {
    return RunEngine<E>(path, [&](E& engine) {
        IDTags tags;
        EXPECT_TRUE(engine.Read(tags, wantVersion));
        return Describe(tags);
    }, clFile::kRead);
}

// A log file of UTF-16LE, read as ASCII.
inline std::string AsciiLog(const std::string& path) {
    std::string text = ReadFile(path);
    std::erase(text, '\0');
    return text;
}

// A decoder's error log, written to a file that the test reads back.
class LogCapture {
public:
    explicit LogCapture(const TempDir& dir) : path_(dir.File("error.log")), sink_(path_) {
        target_.errorLog = sink_.Get();
    }

    const clLogTarget* Target() const { return &target_; }
    std::string Text() const { return AsciiLog(path_); }

private:
    std::string path_;
    it::SinkFile sink_;
    clLogTarget target_;
};

// A file of stand-in audio with `tail` behind it; Tail() also checks that
// the audio in front is unchanged.
class TagFileTest : public ::testing::Test {
public:
    static constexpr size_t kAudio = 1000;

protected:
    void Make(const std::string& tail, size_t audio = kAudio) { WriteFile(path, AudioBytes(audio) + tail); }
    std::string Tail() const {
        std::string bytes = ReadFile(path);
        EXPECT_EQ(bytes.substr(0, kAudio), AudioBytes(kAudio));
        return bytes.size() < kAudio ? "(audio cut)" : bytes.substr(kAudio);
    }

    TempDir dir;
    LogCapture log{dir};
    std::string path = dir.File("song.tta");
};

}  // namespace tagtest
