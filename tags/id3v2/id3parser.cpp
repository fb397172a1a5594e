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

bool IdCharacter(uint8_t c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

// Four letters or digits; in a 2.3 tag also three and a NUL, as some writers do.
bool LooksLikeFrameId(const uint8_t* id) {
    return IdCharacter(id[0]) && IdCharacter(id[1]) && IdCharacter(id[2]) && (IdCharacter(id[3]) || id[3] == 0);
}

constexpr char kBadId[] = "a frame has no valid identifier";
constexpr char kPastEnd[] = "a frame runs past the end of the tag";
constexpr char kBadSize[] = "a frame size is damaged";
constexpr char kBadBytes[] = "a frame can't be read";

// Runs a frame loop; damage that it doesn't catch itself ends the frames too.
template <class Loop>
void ReadFrames(id3tag& tag, Loop loop) {
    try {
        loop();
    } catch (const parseError&) {
        tag.damage = kBadBytes;
    }
}

// Where the frame loop stands, as a position in the tag; false behind a
// filter that can't tell.
void MarkFramesEnd(id3tag& tag, streamIn& stream) {
    try {
        tag.framesEnd = stream.tell();
    } catch (const notSeekableError&) {
        tag.framesEndExact = false;
    }
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

// A header flag that announces an extended header which isn't there: the
// frames begin at once. Looks without consuming.
bool HasExtendedHeader(streamIn& window, uint8_t flags) {
    if ((flags & 0x40) == 0) return false;
    uint8_t peek[4] = {};
    const uint64_t got = window.read(peek, 4);
    window.seek(0);
    return got < 4 || !LooksLikeFrameId(peek);
}

void SkipExtendedHeaderV23(streamIn& stream) {
    uint8_t size[4];
    stream.readExact(size, 4);
    stream.skipExact(BigEndian(size, 4));
}

void SkipExtendedHeaderV24(streamIn& window) {
    uint8_t bytes[4];
    window.readExact(bytes, 4);
    try {
        const uint32_t size = Synchsafe(bytes);
        if (size < 6) throw parseError();
        window.skipExact(size - 4);   // the size counts itself
    } catch (const parseError&) {
        window.seek(4);   // laid out as in 2.3: a plain size that doesn't count itself
        window.skipExact(BigEndian(bytes, 4));
    }
}

struct SizeWalk {
    uint64_t frames = 0;
    bool clean = false;   // ended on a frame boundary at the end, or at padding of zeros only
};

bool RestIsZeros(streamIn& window) {
    uint8_t block[4096];
    for (;;) {
        const uint64_t got = window.read(block, sizeof(block));
        if (std::any_of(block, block + got, [](uint8_t b) { return b != 0; })) return false;
        if (got < sizeof(block)) return true;
    }
}

// Walks the frame headers from the window's position with sizes read one way.
SizeWalk WalkSizes(streamIn& window, uint64_t start, bool plain) {
    SizeWalk walk;
    window.seek(start);
    for (;;) {
        uint8_t header[10];
        const uint64_t got = window.read(header, 10);
        if (got == 0 || header[0] == 0) {
            walk.clean = std::all_of(header, header + got, [](uint8_t b) { return b == 0; }) && RestIsZeros(window);
            return walk;
        }
        if (got < 10 || !LooksLikeFrameId(header)) return walk;
        uint32_t size = BigEndian(header + 4, 4);
        if (!plain) {
            if ((size & 0x80808080u) != 0) return walk;
            size = Synchsafe(header + 4);
        }
        if (window.skip(size) < size) return walk;
        ++walk.frames;
    }
}

// Some writers put plain sizes into 2.4 frame headers. Whichever reading
// walks more frames cleanly wins; synchsafe on a tie.
bool PlainSizes(streamIn& window) {
    const uint64_t start = window.tell();
    const SizeWalk synchsafe = WalkSizes(window, start, false);
    const SizeWalk plain = WalkSizes(window, start, true);
    window.seek(start);
    if (plain.clean != synchsafe.clean) return plain.clean;
    return plain.frames > synchsafe.frames;
}

void ParseV24(id3tag& tag, streamIn& window, uint8_t flags, parseCallback& callback) {
    if (HasExtendedHeader(window, flags)) SkipExtendedHeaderV24(window);
    const bool plain = PlainSizes(window);
    ReadFrames(tag, [&] { parseFramesV24(tag, window, callback, plain, (flags & 0x80) != 0); });
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
    tag.framesEndExact = true;
    tag.damage = nullptr;
    uint8_t header[10];
    stream.readExact(header, 10);
    if (std::memcmp(header, "ID3", 3) != 0) throw parseError();
    const uint8_t version = header[3];
    const uint8_t flags = header[5];
    if (version < 2 || version > 4) throw parseError();
    streamLimited window(stream, Synchsafe(header + 6));

    if (version == 2) {
        if (flags & 0x7F) throw parseError();   // 0x40 is compression, which nothing can undo
        streamFixSync unsync(window);
        ReadFrames(tag, [&] { parseFramesV22(tag, (flags & 0x80) ? static_cast<streamIn&>(unsync) : window, callback); });
        tag.version = 2;
    } else if (version == 3) {
        if (flags & 0x1F) throw parseError();
        const bool extended = HasExtendedHeader(window, flags);
        streamFixSync unsync(window);
        streamIn& top = (flags & 0x80) ? static_cast<streamIn&>(unsync) : window;
        if (extended) SkipExtendedHeaderV23(top);
        ReadFrames(tag, [&] { parseFramesV23(tag, top, callback); });
        tag.version = 3;
    } else {
        if (flags & 0x0F) throw parseError();
        ParseV24(tag, window, flags, callback);
        tag.version = 4;
    }
    if (!tag.framesEndExact) tag.framesEnd = window.tell();
}

namespace {

// The frame header's ID and size are read; reads the body, or records why
// the frames end here and gives false.
bool ReadStoredBody(id3tag& tag, streamIn& stream, uint64_t size, std::vector<uint8_t>& body) {
    if (size >= kMaxFrameSize) {
        tag.damage = kBadSize;
        return false;
    }
    try {
        body = ReadBody(stream, size);
        return true;
    } catch (const parseError&) {
        tag.damage = kPastEnd;
        return false;
    }
}

// A 2.4 body to its plain form: the data length indicator skipped,
// unsynchronisation undone. False when it can't be.
bool DecodeV24Body(const std::vector<uint8_t>& stored, uint8_t format, bool unsynchronised, std::vector<uint8_t>& data) {
    uint64_t offset = 0;
    if (format & 0x01) {
        if (stored.size() < 4) return false;
        offset = 4;
    }
    if (!unsynchronised) {
        data.assign(stored.begin() + static_cast<long>(offset), stored.end());
        return true;
    }
    try {
        streamInMem memory(stored.data() + offset, stored.size() - offset);
        data = ReadUnsynchronised(memory, stored.size() - offset);
        return true;
    } catch (const parseError&) {
        return false;
    }
}

}  // namespace

void parseFramesV23(id3tag& tag, streamIn& stream, parseCallback& callback) {
    for (;;) {
        MarkFramesEnd(tag, stream);
        uint8_t id[4];
        if (stream.read(id, 4) < 4 || id[0] == 0) return;   // end of data, or padding
        uint8_t rest[6];
        if (!LooksLikeFrameId(id) || stream.read(rest, 6) < 6) {
            tag.damage = kBadId;
            return;
        }
        const uint32_t size = BigEndian(rest, 4);
        std::vector<uint8_t> body;
        if (!ReadStoredBody(tag, stream, size, body)) return;
        const uint32_t frame = FourLetterId(id);
        if (size == 0 || !callback.wantFrame(frame)) continue;
        id3frame& stored = AppendFrame(tag, frame, 3, rest[4], rest[5]);
        // Compressed, encrypted or grouped: kept as it is, never read.
        stored.opaque = (rest[5] & 0xE0) != 0;
        (stored.opaque ? stored.stored : stored.data).swap(body);
    }
}

void parseFramesV24(id3tag& tag, streamIn& stream, parseCallback& callback, bool plainSizes, bool allUnsynchronised) {
    for (;;) {
        MarkFramesEnd(tag, stream);
        uint8_t id[4];
        if (stream.read(id, 4) < 4 || id[0] == 0) return;
        uint8_t rest[6];
        if (!LooksLikeFrameId(id) || stream.read(rest, 6) < 6) {
            tag.damage = kBadId;
            return;
        }
        uint32_t size = BigEndian(rest, 4);
        if (!plainSizes) {
            if ((size & 0x80808080u) != 0) {
                tag.damage = kBadSize;
                return;
            }
            size = Synchsafe(rest);
        }
        std::vector<uint8_t> body;
        if (!ReadStoredBody(tag, stream, size, body)) return;
        const uint32_t frame = FourLetterId(id);
        if (size == 0 || !callback.wantFrame(frame)) continue;
        // A tag-wide flag means every frame is unsynchronised; the copy says so itself.
        const uint8_t format = static_cast<uint8_t>(rest[5] | (allUnsynchronised ? 0x02 : 0));
        id3frame& stored = AppendFrame(tag, frame, 4, rest[4], format);
        // Grouped, compressed, encrypted, or marked to be dropped or kept
        // unchanged: kept as it is, never read.
        stored.opaque = (rest[4] & 0x70) != 0 || (format & 0x4C) != 0 ||
                        !DecodeV24Body(body, format, (format & 0x02) != 0, stored.data);
        if (stored.opaque) stored.data.clear();
        if (stored.opaque || stored.data != body) stored.stored.swap(body);
    }
}

void parseFramesV22(id3tag& tag, streamIn& stream, parseCallback& callback) {
    for (;;) {
        MarkFramesEnd(tag, stream);
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
