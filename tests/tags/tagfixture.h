#pragma once
// What the tag engine tests share: a folder that removes itself, files made of
// hand-built tags around stand-in audio, and a capture of the error log.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/clFile.h"
#include "support/clLog.h"
#include "support/clString.h"
#include "support/textcodec.h"
#include "tags/idtags.h"

namespace tagtest {

class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "fdtags-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string File(const std::string& name) const { return path_ + "/" + name; }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

inline std::string ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Stand-in audio: bytes that no tag magic shows up in by chance.
inline std::string AudioBytes(size_t count, uint32_t seed = 1) {
    std::string bytes(count, '\0');
    uint32_t x = seed * 2654435761u + 1;
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

struct ApeItem {
    ApeItem(std::string k, std::string v, uint32_t f = 0) : key(std::move(k)), value(std::move(v)), flags(f) {}
    std::string key;
    std::string value;
    uint32_t flags = 0;   // 2: binary
};

inline std::string ApeItemBytes(const ApeItem& item) {
    return U32(static_cast<uint32_t>(item.value.size())) + U32(item.flags) + item.key + std::string(1, '\0') +
           item.value;
}

inline std::string ApeFrameBytes(uint32_t version, uint32_t size, uint32_t count, uint32_t flags) {
    return "APETAGEX" + U32(version) + U32(size) + U32(count) + U32(flags) + std::string(8, '\0');
}

// A tag as the format describes it; `count` and `size` below 0 are computed.
struct ApeTag {
    ApeTag(std::vector<ApeItem> i = {}, uint32_t v = 2000, bool h = true) : items(std::move(i)), version(v), header(h) {}
    std::vector<ApeItem> items;
    uint32_t version = 2000;
    bool header = true;
    int64_t count = -1;
    int64_t size = -1;

    std::string Bytes() const {
        std::string body;
        for (const ApeItem& item : items) body += ApeItemBytes(item);
        uint32_t tagSize = size >= 0 ? static_cast<uint32_t>(size) : static_cast<uint32_t>(body.size() + 32);
        uint32_t itemCount = count >= 0 ? static_cast<uint32_t>(count) : static_cast<uint32_t>(items.size());
        std::string out;
        if (header) out += ApeFrameBytes(version, tagSize, itemCount, 0xA0000000u);
        out += body;
        out += ApeFrameBytes(version, tagSize, itemCount, header ? 0x80000000u : 0);
        return out;
    }
};

inline std::string Field(const std::string& text, size_t width) {
    std::string field = text.substr(0, width);
    field.resize(width, '\0');
    return field;
}

struct Id3v1 {
    explicit Id3v1(std::string ti = "", std::string ar = "", std::string al = "", std::string ye = "",
                   std::string co = "", int tr = 0, int ge = 255)
        : title(std::move(ti)), artist(std::move(ar)), album(std::move(al)), year(std::move(ye)),
          comment(std::move(co)), track(tr), genre(ge) {}
    std::string title, artist, album, year, comment;
    int track = 0;      // 0: ID3v1.0, the comment may use 30 bytes
    int genre = 255;

    std::string Bytes() const {
        std::string tag = "TAG" + Field(title, 30) + Field(artist, 30) + Field(album, 30) + Field(year, 4);
        if (track == 0) {
            tag += Field(comment, 30);
        } else {
            tag += Field(comment, 28) + std::string(1, '\0') + std::string(1, static_cast<char>(track));
        }
        tag += static_cast<char>(genre);
        return tag;
    }
};

inline clString S(const char* utf8) { return clString::FromUtf8(utf8); }
inline std::string Utf8(const clString& text) { return text.ToUtf8(); }
inline std::string DataOf(const IDTag& tag) {
    return std::string(reinterpret_cast<const char*>(tag.Data.Data()), tag.Data.Size());
}

// "Name=Value" per entry, binary data as "[n bytes]"; CR shown as "|".
inline std::string Describe(const IDTags& tags) {
    std::string out;
    for (int i = 0; i < tags.Count(); ++i) {
        std::string value = Utf8(tags[i].Value);
        for (char& c : value) {
            if (c == '\r') c = '|';
        }
        out += Utf8(tags[i].Name) + "=" + value;
        if (!tags[i].Data.Empty()) out += "[" + std::to_string(tags[i].Data.Size()) + " bytes]";
        out += ";";
    }
    return out;
}

inline clFile OpenFile(const std::string& path, uint32_t access = clFile::kReadWrite) {
    clFile file(S(path.c_str()));
    if (!file.Open(access)) throw std::runtime_error("cannot open " + path);
    return file;
}

// The error log of a decoder, written to a file that the test reads back.
class LogCapture {
public:
    explicit LogCapture(const TempDir& dir) : path_(dir.File("error.log")) {
        fd_ = ::open(path_.c_str(), O_CREAT | O_TRUNC | O_RDWR | O_APPEND | O_CLOEXEC, 0644);
        if (fd_ < 0) throw std::runtime_error("cannot create the log");
        target_.errorLog = static_cast<uint64_t>(fd_);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture() { ::close(fd_); }

    const clLogTarget* Target() const { return &target_; }
    std::string Text() const {
        std::string bytes = ReadBytes(path_);
        std::u16string units;
        for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
            units += static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) | static_cast<uint8_t>(bytes[i + 1]) << 8);
        }
        return text::Utf16ToUtf8(units);
    }

private:
    std::string path_;
    int fd_ = -1;
    clLogTarget target_;
};

}  // namespace tagtest
