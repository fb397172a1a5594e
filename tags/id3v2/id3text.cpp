#include "tags/id3v2/id3text.h"

#include <algorithm>

#include "support/textcodec.h"
#include "tags/id3v2/id3streams.h"

namespace id3parser {

namespace {

constexpr uint64_t kMaxStrings = 1024;

bool IsWide(uint8_t encoding) { return encoding == 1 || encoding == 2; }

std::string Narrow(const uint8_t* bytes, uint64_t length) {
    uint64_t end = 0;
    while (end < length && bytes[end] != 0) ++end;
    return std::string(reinterpret_cast<const char*>(bytes), end);
}

std::u16string Wide(const uint8_t* bytes, uint64_t length, bool bigEndian) {
    std::u16string units;
    for (uint64_t i = 0; i + 1 < length; i += 2) {
        const auto unit = static_cast<char16_t>(bigEndian ? (bytes[i] << 8) | bytes[i + 1]
                                                          : bytes[i] | (bytes[i + 1] << 8));
        if (unit == 0) break;
        units.push_back(unit);
    }
    return units;
}

std::string DecodeUtf16WithBom(const uint8_t* bytes, uint64_t length, bool strict) {
    std::u16string units = Wide(bytes, length, false);
    if (!units.empty() && units[0] == 0xFEFF) return text::Utf16ToUtf8(std::u16string_view(units).substr(1));
    if (!units.empty() && units[0] == 0xFFFE) {
        return text::Utf16ToUtf8(Wide(bytes + 2, length - 2, true));
    }
    if (strict) throw parseError();
    return text::Utf16ToUtf8(units);
}

bool IsAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<uint8_t>(c) < 0x80; });
}

std::string DecodeUtf8(const uint8_t* bytes, uint64_t length, bool strict) {
    std::string raw = Narrow(bytes, length);
    if (IsAscii(raw)) return raw;   // the same in every encoding of one byte
    if (text::Utf16ToUtf8(text::Utf8ToUtf16(raw)) == raw) return raw;
    if (strict) throw parseError();
    return ansiToUtf8(raw);
}

std::string DecodeAnsi(const uint8_t* bytes, uint64_t length, bool strict) {
    std::string raw = Narrow(bytes, length);
    if (IsAscii(raw)) return raw;
    if (strict) {
        for (char c : raw) {
            if (static_cast<uint8_t>(c) >= 0x80) throw parseError();
        }
    }
    return ansiToUtf8(raw);
}

// The text part of a body: behind the header, checked.
struct FrameTextView {
    uint8_t encoding;
    const uint8_t* text;
    uint64_t bytes;
    uint64_t width;   // 1 or 2
    uint64_t units;
};

FrameTextView ViewText(const id3frame& frame) {
    const uint64_t offset = frameTextOffset(frame);
    if (frame.data.size() < offset || frame.data.empty()) throw parseError();
    FrameTextView view{};
    view.encoding = frame.data[0];
    view.text = frame.data.data() + offset;
    view.bytes = frame.data.size() - offset;
    view.width = IsWide(view.encoding) ? 2 : 1;
    view.units = view.bytes / view.width;
    return view;
}

bool IsNulAt(const FrameTextView& view, uint64_t unit) {
    const uint8_t* p = view.text + unit * view.width;
    return view.width == 1 ? p[0] == 0 : p[0] == 0 && p[1] == 0;
}

}  // namespace

std::string ansiToUtf8(const std::string& bytes) { return text::Utf16ToUtf8(text::AnsiToUtf16(bytes)); }
std::string utf8ToAnsi(const std::string& text) { return text::Utf16ToAnsi(text::Utf8ToUtf16(text)); }
std::string latin1ToUtf8(const std::string& bytes) { return text::Utf16ToUtf8(text::Latin1ToUtf16(bytes)); }
std::string utf8ToLatin1(const std::string& text) { return text::Utf16ToLatin1(text::Utf8ToUtf16(text)); }

void decodeText(std::string& out, uint8_t encoding, const uint8_t* bytes, uint64_t length, bool strict) {
    switch (encoding) {
        case 0: out = DecodeAnsi(bytes, length, strict); return;
        case 1: out = DecodeUtf16WithBom(bytes, length, strict); return;
        case 2: out = text::Utf16ToUtf8(Wide(bytes, length, true)); return;
        case 3: out = DecodeUtf8(bytes, length, strict); return;
        default: throw parseError();
    }
}

uint64_t frameTextOffset(const id3frame& frame) {
    return frame.id == frameId("COMM") || frame.id == frameId("USLT") ? 4 : 1;
}

uint64_t frameTextCount(const id3frame& frame) {
    const FrameTextView view = ViewText(frame);
    if (view.encoding > 3) throw parseError();
    if (view.units == 0) return 0;
    uint64_t count = 0;
    uint64_t afterLast = 0;
    for (uint64_t unit = 0; unit < view.units; ++unit) {
        if (!IsNulAt(view, unit)) continue;
        if (++count > kMaxStrings) throw parseError();
        afterLast = unit + 1;
    }
    return afterLast < view.units ? count + 1 : count;
}

void frameText(const id3frame& frame, bool strict, std::string& out, uint64_t index, TextCursor& cursor) {
    const FrameTextView view = ViewText(frame);
    if (cursor.count > index || cursor.position > view.units) cursor = TextCursor{};
    uint64_t unit = cursor.position;
    while (cursor.count < index && unit < view.units) {
        if (!IsNulAt(view, unit++)) continue;
        while (unit < view.units && IsNulAt(view, unit)) ++unit;   // a run of NULs is one separator
        ++cursor.count;
        cursor.position = unit;
    }
    if (cursor.count < index) unit = view.units;   // past the last string: empty
    else unit = cursor.position;
    const uint64_t offset = unit * view.width;
    decodeText(out, view.encoding, view.text + offset, view.bytes - offset, strict);
}

void frameUrlAfterDescription(const id3frame& frame, std::string& out) {
    if (frame.data.empty() || frame.data[0] > 3) throw parseError();
    const uint64_t width = IsWide(frame.data[0]) ? 2 : 1;
    const uint8_t* body = frame.data.data();
    const uint64_t size = frame.data.size();
    for (uint64_t at = 1; at + width <= size; at += width) {
        if (body[at] != 0 || (width == 2 && body[at + 1] != 0)) continue;
        const uint64_t start = at + width;
        out = latin1ToUtf8(Narrow(body + start, size - start));
        return;
    }
    throw parseError();
}

void pictureFields(const uint8_t* bytes, uint64_t size, uint8_t& type, const uint8_t*& image, uint64_t& imageSize) {
    if (size < 2) throw parseError();
    const uint8_t encoding = bytes[0];
    uint64_t at = 1;
    while (at < size && bytes[at] != 0) ++at;   // the MIME string
    if (at + 1 >= size) throw parseError();      // no NUL, or no type byte behind it
    type = bytes[at + 1] >= 21 ? 0 : bytes[at + 1];
    at += 2;
    if (encoding > 3) throw parseError();
    const uint64_t width = IsWide(encoding) ? 2 : 1;
    for (; at + width <= size; at += width) {
        if (bytes[at] != 0 || (width == 2 && bytes[at + 1] != 0)) continue;
        const uint64_t start = at + width;
        if (start >= size) throw parseError();
        image = bytes + start;
        imageSize = size - start;
        return;
    }
    throw parseError();
}

}  // namespace id3parser
