#include "tags/id3v2/id3parser.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace id3parser {

namespace {

constexpr uint32_t kMaxFrameSize = 0x4000000;   // 64 MiB, versions 2.3 and 2.4
constexpr uint32_t kApic = frameId("APIC");

struct ShortId {
    const char* three;
    uint32_t four;
};

constexpr ShortId kFrameIdTable[] = {
    {"TT1", frameId("TIT1")}, {"TT2", frameId("TIT2")}, {"TT3", frameId("TIT3")}, {"TP1", frameId("TPE1")},
    {"TP2", frameId("TPE2")}, {"TP3", frameId("TPE3")}, {"TP4", frameId("TPE4")}, {"TCM", frameId("TCOM")},
    {"TXT", frameId("TEXT")}, {"TLA", frameId("TLAN")}, {"TCO", frameId("TCON")}, {"TAL", frameId("TALB")},
    {"TRK", frameId("TRCK")}, {"TRC", frameId("TSRC")}, {"TYE", frameId("TYER")}, {"TBP", frameId("TBPM")},
    {"TCR", frameId("TCOP")}, {"TPB", frameId("TPUB")}, {"TEN", frameId("TENC")}, {"TSS", frameId("TSSE")},
    {"TOA", frameId("TOPE")}, {"TXX", frameId("TXXX")}, {"TPA", frameId("TPOS")}, {"WAF", frameId("WOAF")},
    {"WAR", frameId("WOAR")}, {"WAS", frameId("WOAS")}, {"WCP", frameId("WCOP")}, {"WCM", frameId("WCOM")},
    {"WPB", frameId("WPUB")}, {"WXX", frameId("WXXX")}, {"COM", frameId("COMM")}, {"PIC", frameId("APIC")},
    {"TCP", frameId("TCMP")},
};

uint32_t BigEndian(const uint8_t* bytes, int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i) value = (value << 8) | bytes[i];
    return value;
}

// Four bytes of 7 bits; a byte with its top bit set is damage.
uint32_t Synchsafe(const uint8_t* bytes) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        if (bytes[i] & 0x80) throw parseError();
        value = (value << 7) | bytes[i];
    }
    return value;
}

uint32_t FourLetterId(const uint8_t* id) {
    if (id[3] != 0) return BigEndian(id, 4);
    const char three[4] = {static_cast<char>(id[0]), static_cast<char>(id[1]), static_cast<char>(id[2]), 0};
    return mapShortFrameId(three);
}

// The 2.2 picture names its format in three letters; 2.3 has a MIME string.
void UpgradePictureLayout(std::vector<uint8_t>& body) {
    if (body.empty() || body[0] > 1 || body.size() < 4) throw parseError();
    const std::string format(reinterpret_cast<const char*>(body.data()) + 1, 3);
    const char* mime = format == "PNG" ? "image/png"
                       : format == "JPG" ? "image/jpeg"
                       : format == "GIF" ? "image/gif"
                                         : "image/x-unknown";
    std::vector<uint8_t> upgraded;
    upgraded.reserve(body.size() + std::strlen(mime) + 1);
    upgraded.push_back(body[0]);
    upgraded.insert(upgraded.end(), mime, mime + std::strlen(mime) + 1);
    upgraded.insert(upgraded.end(), body.begin() + 4, body.end());
    body.swap(upgraded);
}

id3frame& AppendFrame(id3tag& tag, uint32_t id, uint32_t version, uint8_t status, uint8_t format) {
    id3frame& frame = tag.frames.emplace_back();
    frame.id = id;
    frame.version = version;
    frame.statusFlags = status;
    frame.formatFlags = format;
    return frame;
}

// Reads `size` bytes in growing steps, so that a size field that lies costs
// no more memory than the bytes that are really there.
std::vector<uint8_t> ReadBody(streamIn& stream, uint64_t size) {
    constexpr uint64_t kStep = 64 << 10;
    std::vector<uint8_t> body;
    body.reserve(static_cast<size_t>(std::min(size, kStep)));
    while (body.size() < size) {
        const size_t start = body.size();
        const uint64_t step = std::min<uint64_t>(size - start, std::max<uint64_t>(start, kStep));
        body.resize(start + step);
        stream.readExact(body.data() + start, step);
    }
    return body;
}

// Reads an unsynchronised body whose decoded size isn't known: in passes that double.
std::vector<uint8_t> ReadUnsynchronised(streamIn& stream, uint64_t size) {
    streamLimited window(stream, size);
    streamFixSync unsync(window);
    std::vector<uint8_t> body;
    uint64_t pass = 256;
    for (;;) {
        const size_t start = body.size();
        body.resize(start + pass);
        const uint64_t got = unsync.read(body.data() + start, pass);
        if (got < pass) {
            body.resize(start + got);
            return body;
        }
        if (pass > UINT64_MAX / 2) throw std::overflow_error("overflow");
        pass *= 2;
    }
}

void SkipExtendedHeaderV23(streamIn& stream) {
    uint8_t size[4];
    stream.readExact(size, 4);
    stream.skipExact(BigEndian(size, 4));
}

void ParseV24(id3tag& tag, streamIn& window, uint8_t flags, parseCallback& callback) {
    if (flags & 0x40) {
        uint8_t bytes[4];
        window.readExact(bytes, 4);
        const uint32_t size = Synchsafe(bytes);
        if (size < 6) throw parseError();
        window.skipExact(size - 4);   // the size counts itself
    }
    parseFramesV24(tag, window, callback);
}

// A tag that claims 2.4 but is laid out as 2.3: read again from the window's start.
bool RetryAsV23(id3tag& tag, streamIn& window, uint8_t flags, parseCallback& callback) {
    try {
        window.seek(0);
        id3tag retry;
        if (flags & 0x40) SkipExtendedHeaderV23(window);
        parseFramesV23(retry, window, callback);
        tag.frames.swap(retry.frames);
        tag.version = 3;
        tag.framesEnd = window.tell();
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace

uint32_t mapShortFrameId(const char* id3) {
    for (const ShortId& row : kFrameIdTable) {
        if (std::strcmp(row.three, id3) == 0) return row.four;
    }
    return 0;
}

void parseTag(id3tag& tag, streamIn& stream, parseCallback& callback) {
    tag.frames.clear();
    tag.version = 0;
    tag.framesEnd = 0;
    uint8_t header[10];
    stream.readExact(header, 10);
    if (std::memcmp(header, "ID3", 3) != 0) throw parseError();
    const uint8_t version = header[3];
    const uint8_t flags = header[5];
    if (version < 2 || version > 4) throw parseError();
    streamLimited window(stream, Synchsafe(header + 6));

    if (version == 2) {
        if (flags & 0x7F) throw parseError();   // 0x40 is compression, which nothing can undo
        if (flags & 0x80) {
            streamFixSync unsync(window);
            parseFramesV22(tag, unsync, callback);
        } else {
            parseFramesV22(tag, window, callback);
        }
        tag.version = 2;
        tag.framesEnd = window.tell();
        return;
    }
    if (version == 3) {
        if (flags & 0x1F) throw parseError();
        streamFixSync unsync(window);
        streamIn& top = (flags & 0x80) ? static_cast<streamIn&>(unsync) : window;
        if (flags & 0x40) SkipExtendedHeaderV23(top);
        parseFramesV23(tag, top, callback);
        tag.version = 3;
        tag.framesEnd = window.tell();
        return;
    }
    if (flags & 0x0F) throw parseError();
    try {
        ParseV24(tag, window, flags, callback);
    } catch (const parseError&) {
        if (RetryAsV23(tag, window, flags, callback)) return;
        throw;
    }
    tag.version = 4;
    tag.framesEnd = window.tell();
}

void parseFramesV23(id3tag& tag, streamIn& stream, parseCallback& callback) {
    for (;;) {
        uint8_t id[4];
        if (stream.read(id, 4) < 4 || id[0] == 0) return;   // end of data, or padding
        uint8_t rest[6];
        stream.readExact(rest, 6);
        const uint32_t size = BigEndian(rest, 4);
        const uint8_t status = rest[4];
        const uint8_t format = rest[5];
        if (size >= kMaxFrameSize) throw parseError();
        const uint32_t frame = FourLetterId(id);
        if (size == 0 || (format & 0x60) != 0 || !callback.wantFrame(frame)) {
            stream.skipExact(size);
            continue;
        }
        if (format & 0x80) {   // compressed: no decompressor, the frame is lost
            if (size < 4) throw parseError();
            stream.skipExact(size);
            continue;
        }
        std::vector<uint8_t> body = ReadBody(stream, size);
        AppendFrame(tag, frame, 3, status, format).data.swap(body);
    }
}

void parseFramesV24(id3tag& tag, streamIn& stream, parseCallback& callback) {
    for (;;) {
        uint8_t id[4];
        if (stream.read(id, 4) < 4 || id[0] == 0) return;
        uint8_t sizeBytes[4];
        stream.readExact(sizeBytes, 4);
        uint32_t size = Synchsafe(sizeBytes);
        uint8_t flags[2] = {0, 0};
        stream.read(flags, 2);
        const uint8_t status = flags[0];
        const uint8_t format = flags[1];
        if (size >= kMaxFrameSize) throw parseError();
        const uint32_t frame = FourLetterId(id);
        if (size == 0 || (status & 0x70) != 0 || (format & 0x44) != 0 || !callback.wantFrame(frame)) {
            stream.skipExact(size);
            continue;
        }
        if (format & 0x01) {   // data length indicator, not used
            if (size < 4) throw parseError();
            size -= 4;
            stream.skipExact(4);
        }
        std::vector<uint8_t> body;
        if (format & 0x02) {
            body = ReadUnsynchronised(stream, size);
        } else {
            body = ReadBody(stream, size);
        }
        if (format & 0x08) continue;   // compressed: lost
        id3frame& stored = AppendFrame(tag, frame, 4, status, format);
        stored.data.swap(body);
    }
}

void parseFramesV22(id3tag& tag, streamIn& stream, parseCallback& callback) {
    for (;;) {
        uint8_t id[3];
        if (stream.read(id, 3) < 3 || id[0] == 0) return;
        uint8_t sizeBytes[3];
        stream.readExact(sizeBytes, 3);
        const uint32_t size = BigEndian(sizeBytes, 3);
        if (size == 0) continue;
        const char three[4] = {static_cast<char>(id[0]), static_cast<char>(id[1]), static_cast<char>(id[2]), 0};
        const uint32_t frame = mapShortFrameId(three);
        if (frame == 0 && !callback.wantFrame(0)) {
            stream.skipExact(size);
            continue;
        }
        id3frame stored;
        stored.id = frame;
        stored.version = 2;
        stored.data = ReadBody(stream, size);
        if (frame == kApic) UpgradePictureLayout(stored.data);
        tag.frames.push_back(std::move(stored));
    }
}

}  // namespace id3parser
