// The frame list to bytes: frames of version 2.3 or 2.4, the tag header,
// padding and alignment. Nothing here touches a file.

#include <algorithm>
#include <stdexcept>

#include "tags/id3v2/id3text.h"
#include "tags/id3v2/id3writer.h"

namespace id3parser {

namespace {

constexpr uint64_t kMaxBody = 0x10000000;
constexpr uint64_t kPaddingCap = 2048;

void Put(streamOut& out, std::initializer_list<uint8_t> bytes) { out.write(bytes.begin(), bytes.size()); }

void PutId(streamOut& out, uint32_t id) {
    Put(out, {static_cast<uint8_t>(id >> 24), static_cast<uint8_t>(id >> 16), static_cast<uint8_t>(id >> 8),
              static_cast<uint8_t>(id)});
}

// A frame read from a tag of the version being written goes back as it
// stood: its flags and its stored bytes.
const std::vector<uint8_t>& StoredBody(const id3frame& frame) { return frame.stored.empty() ? frame.data : frame.stored; }

void RenderFrameV23(const id3frame& frame, streamOut& out) {
    const bool copy = frame.version == 3;
    const std::vector<uint8_t>& body = copy ? StoredBody(frame) : frame.data;
    if (body.size() >= kMaxBody) throw writeError();
    PutId(out, frame.id);
    PutId(out, static_cast<uint32_t>(body.size()));
    Put(out, {copy ? frame.statusFlags : uint8_t{0}, copy ? frame.formatFlags : uint8_t{0}});
    out.write(body.data(), body.size());
}

bool NeedsUnsynchronisation(const id3frame& frame) {
    const std::vector<uint8_t>& body = frame.data;
    if (!body.empty() && body.back() == 0xFF) return true;
    for (size_t i = 0; i + 1 < body.size(); ++i) {
        if (body[i] == 0xFF && (body[i + 1] & 0xE0) == 0xE0) return true;
    }
    return false;
}

void RenderFrameV24(const id3frame& frame, streamOut& out) {
    PutId(out, frame.id);
    if (frame.version == 4) {
        const std::vector<uint8_t>& body = StoredBody(frame);
        writeSynchsafe(out, body.size());
        Put(out, {frame.statusFlags, frame.formatFlags});
        out.write(body.data(), body.size());
        return;
    }
    if (!NeedsUnsynchronisation(frame)) {
        writeSynchsafe(out, frame.data.size());
        Put(out, {0, 0});
        out.write(frame.data.data(), frame.data.size());
        return;
    }
    std::vector<uint8_t> synced;
    synced.reserve(frame.data.size() + frame.data.size() / 64 + 1);
    for (size_t i = 0; i < frame.data.size(); ++i) {
        const uint8_t b = frame.data[i];
        synced.push_back(b);
        if (b != 0xFF) continue;
        const bool last = i + 1 == frame.data.size();
        if (last || (frame.data[i + 1] & 0xE0) == 0xE0 || frame.data[i + 1] == 0) synced.push_back(0);
    }
    writeSynchsafe(out, synced.size() + 4);
    Put(out, {0x00, 0x03});   // unsynchronised, with a data length indicator
    writeSynchsafe(out, frame.data.size());
    out.write(synced.data(), synced.size());
}

}  // namespace

void orderPictures(id3tag& tag) {
    const auto PictureType = [](const id3frame& frame) {
        try {
            uint8_t type = 0;
            const uint8_t* image = nullptr;
            uint64_t size = 0;
            pictureFields(frame.data.data(), frame.data.size(), type, image, size);
            return type;
        } catch (const parseError&) {
            return uint8_t{0};
        }
    };
    FrameList fronts, others;
    for (auto it = tag.frames.begin(); it != tag.frames.end();) {
        const auto next = std::next(it);
        if (it->id == frameId("APIC")) {
            FrameList& part = PictureType(*it) == 3 ? fronts : others;
            part.splice(part.end(), tag.frames, it);
        }
        it = next;
    }
    tag.frames.splice(tag.frames.end(), fronts);
    tag.frames.splice(tag.frames.end(), others);
}

void writeSynchsafe(streamOut& out, uint64_t value) {
    if (value >= kMaxBody) throw writeError();
    Put(out, {static_cast<uint8_t>((value >> 21) & 0x7F), static_cast<uint8_t>((value >> 14) & 0x7F),
              static_cast<uint8_t>((value >> 7) & 0x7F), static_cast<uint8_t>(value & 0x7F)});
}

void renderTag(const id3tag& tag, streamOut& out, uint64_t oldSize, uint64_t maxPadding, uint64_t alignment,
               uint64_t keptBehind) {
    if (tag.version != 3 && tag.version != 4) throw writeError();
    streamOutBuffer frames;
    for (const id3frame& frame : tag.frames) {
        if (frame.id == 0) continue;   // no identifier to write: it would read back as padding
        // Compressed or encrypted bytes can't be carried into another version.
        if (frame.opaque && frame.version != tag.version) continue;
        if (tag.version == 4) RenderFrameV24(frame, frames);
        else RenderFrameV23(frame, frames);
    }
    const uint64_t tagBytes = frames.bytes.size() + 10;
    uint64_t pad = std::min(maxPadding, kPaddingCap);
    if (tagBytes <= oldSize && oldSize - tagBytes <= maxPadding) pad = oldSize - tagBytes;
    if (keptBehind != 0) pad = 0;   // the kept bytes stand where padding would
    const uint64_t step = std::max<uint64_t>(alignment, 1);
    const uint64_t total = keptBehind != 0 ? tagBytes : (tagBytes + pad + step - 1) / step * step;
    pad = total - tagBytes;
    if (total - 10 + keptBehind > UINT32_MAX) throw std::overflow_error("overflow");
    // No tag-wide unsynchronisation flag: in 2.4 it would say that every
    // frame is unsynchronised, and the frames carry their own flags.
    Put(out, {'I', 'D', '3', static_cast<uint8_t>(tag.version), 0, 0});
    writeSynchsafe(out, total - 10 + keptBehind);
    out.write(frames.bytes.data(), frames.bytes.size());
    const uint8_t zeros[256] = {};
    for (uint64_t left = pad; left > 0;) {
        const uint64_t step256 = std::min<uint64_t>(left, sizeof(zeros));
        out.write(zeros, step256);
        left -= step256;
    }
}

}  // namespace id3parser
