#pragma once
// Tag bytes made by hand, so that damaged and hostile ones can be made too:
// APE items and tags, ID3v1, ID3v2 frames and tags of each version.

#include <cstdint>
#include <string>
#include <vector>

namespace tagtest {

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
    for (size_t i = 0; i < 4; ++i) bytes[i] = static_cast<char>(value >> (8 * i));
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
        return (header ? ApeFrameBytes(version, tagSize, itemCount, 0xA0000000u) : "") + body +
               ApeFrameBytes(version, tagSize, itemCount, header ? 0x80000000u : 0);
    }
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
                         const std::string& year = "", const std::string& comment = "", int track = 0, int genre = 255) {
    const auto Field = [](std::string text, size_t width) { return text.resize(width, '\0'), text; };
    std::string tag = "TAG" + Field(title, 30) + Field(artist, 30) + Field(album, 30) + Field(year, 4);
    tag += track == 0 ? Field(comment, 30) : Field(comment, 28) + '\0' + static_cast<char>(track);
    return tag + static_cast<char>(genre);
}

inline std::string BigEndian(uint32_t value, int bytes) {
    std::string out;
    for (int i = bytes - 1; i >= 0; --i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
    return out;
}

inline std::string Synchsafe(uint32_t value) {
    std::string out;
    for (int i = 3; i >= 0; --i) out += static_cast<char>((value >> (7 * i)) & 0x7F);
    return out;
}

inline std::string Frame22(const std::string& id, const std::string& body) { return id + BigEndian(static_cast<uint32_t>(body.size()), 3) + body; }
inline std::string Frame23(const std::string& id, const std::string& body, uint8_t status = 0, uint8_t format = 0) {
    return id + BigEndian(static_cast<uint32_t>(body.size()), 4) + static_cast<char>(status) + static_cast<char>(format) + body;
}
inline std::string Frame24(const std::string& id, const std::string& body, uint8_t status = 0, uint8_t format = 0) {
    return id + Synchsafe(static_cast<uint32_t>(body.size())) + static_cast<char>(status) + static_cast<char>(format) + body;
}
inline std::string Tag(int version, const std::string& frames, uint8_t flags = 0) {
    return std::string("ID3") + static_cast<char>(version) + '\0' + static_cast<char>(flags) +
           Synchsafe(static_cast<uint32_t>(frames.size())) + frames;
}
// The size of the ID3v2 tag in front of `bytes`, header included; 0 without one.
inline size_t TagSize(const std::string& bytes) {
    if (bytes.size() < 10 || bytes.compare(0, 3, "ID3") != 0) return 0;
    size_t size = 0;
    for (size_t i = 6; i < 10; ++i) size = (size << 7) | static_cast<uint8_t>(bytes[i]);
    return size + 10;
}
// A text body: the encoding byte, then the bytes.
inline std::string Text(const std::string& text, char encoding = 0) { return std::string(1, encoding) + text; }

// Inserts a 0x00 behind every 0xFF, as unsynchronisation does.
inline std::string Unsynchronise(const std::string& bytes) {
    std::string out;
    for (char c : bytes) out += static_cast<uint8_t>(c) == 0xFF ? std::string{c, '\0'} : std::string{c};
    return out;
}

}  // namespace tagtest
