#pragma once
// Hand-made ID3v2 bytes for the tests: frames of each version, tags around
// them, and the values a parsed tag gives in a short text form.

#include <cstdint>
#include <string>

#include "tags/id3v2/id3parser.h"
#include "tags/id3v2/id3values.h"

namespace id3test {

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

inline std::string Frame22(const std::string& id, const std::string& body) {
    return id + BigEndian(static_cast<uint32_t>(body.size()), 3) + body;
}
inline std::string Frame23(const std::string& id, const std::string& body, uint8_t status = 0, uint8_t format = 0) {
    return id + BigEndian(static_cast<uint32_t>(body.size()), 4) + static_cast<char>(status) +
           static_cast<char>(format) + body;
}
inline std::string Frame24(const std::string& id, const std::string& body, uint8_t status = 0, uint8_t format = 0) {
    return id + Synchsafe(static_cast<uint32_t>(body.size())) + static_cast<char>(status) +
           static_cast<char>(format) + body;
}
inline std::string Tag(int version, const std::string& frames, uint8_t flags = 0) {
    return std::string("ID3") + static_cast<char>(version) + '\0' + static_cast<char>(flags) +
           Synchsafe(static_cast<uint32_t>(frames.size())) + frames;
}
// The size of the tag in front of `bytes`, header included; 0 without one.
inline size_t TagSize(const std::string& bytes) {
    if (bytes.size() < 10 || bytes.compare(0, 3, "ID3") != 0) return 0;
    size_t size = 0;
    for (size_t i = 6; i < 10; ++i) size = (size << 7) | static_cast<uint8_t>(bytes[i]);
    return size + 10;
}
// A text body in encoding 0 (or as given): the encoding byte, then the bytes.
inline std::string Text(const std::string& text, char encoding = 0) { return std::string(1, encoding) + text; }

// Inserts a 0x00 behind every 0xFF, as unsynchronisation does.
inline std::string Unsynchronise(const std::string& bytes) {
    std::string out;
    for (char c : bytes) {
        out += c;
        if (static_cast<uint8_t>(c) == 0xFF) out += '\0';
    }
    return out;
}

inline id3parser::id3tag Parse(const std::string& bytes) {
    id3parser::streamInMem stream(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    id3parser::parseCallback callback;
    id3parser::id3tag tag;
    id3parser::parseTag(tag, stream, callback);
    return tag;
}

// "Name=a|b;" per name, in map order.
inline std::string Describe(const id3parser::TagValues& values) {
    std::string out;
    for (const auto& [name, list] : values) {
        out += name + "=";
        for (size_t i = 0; i < list.size(); ++i) out += (i ? "|" : "") + list[i];
        out += ";";
    }
    return out;
}

inline std::string ValuesOf(const id3parser::id3tag& tag) {
    id3parser::TagValues values;
    id3parser::framesToValues(tag, values);
    return Describe(values);
}

}  // namespace id3test
