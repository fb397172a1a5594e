#pragma once
// Frames as stored in a tag, before any body is interpreted. Every version
// comes out with four-letter IDs, so the layers above speak one vocabulary.

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

namespace id3parser {

// "TIT2" as the big-endian number 0x54495432.
constexpr uint32_t frameId(const char (&id)[5]) {
    return (static_cast<uint32_t>(static_cast<uint8_t>(id[0])) << 24) |
           (static_cast<uint32_t>(static_cast<uint8_t>(id[1])) << 16) |
           (static_cast<uint32_t>(static_cast<uint8_t>(id[2])) << 8) | static_cast<uint8_t>(id[3]);
}

struct id3frame {
    uint32_t id = 0;               // 0: an identifier with no mapping
    uint8_t version = 0;           // 2, 3 or 4 as read; 0 for a frame the writer built
    uint8_t statusFlags = 0;
    uint8_t formatFlags = 0;
    bool opaque = false;           // compressed, encrypted or grouped: `data` is empty, only `stored` holds it
    std::vector<uint8_t> data;     // the body with all transport encodings undone
    // The body as it stood behind the frame header (the tag's own
    // unsynchronisation of 2.3 undone), when that differs from `data`: what a
    // rewrite in the same version copies, with the flags, byte for byte.
    std::vector<uint8_t> stored;
};

// Frame ID to the tag name that replaces the frame's default name.
using FrameOverrides = std::map<uint32_t, std::string>;

struct id3tag {
    std::list<id3frame> frames;
    FrameOverrides overrides;
    uint32_t version = 0;   // 0 while empty, else the version the tag was read as
    uint8_t strict = 0;
    // Where the frames ended, counted from behind the tag header: what lies
    // between there and the declared size is padding. Exact unless the whole
    // tag was unsynchronised, where it may lie up to 4 bytes further.
    uint64_t framesEnd = 0;
    bool framesEndExact = true;
    // Why the frames stopped before the end of the tag, when it wasn't
    // padding: the frames in front of the damage were read, the rest wasn't.
    const char* damage = nullptr;
};

class parseCallback {
public:
    virtual ~parseCallback() = default;
    virtual bool wantFrame(uint32_t) { return true; }
};

}  // namespace id3parser
