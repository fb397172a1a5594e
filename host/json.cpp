#include "host/json.h"

#include <cstdio>

#include "host/text.h"

namespace host {

JsonWriter& JsonWriter::BeginObject() { return Open('{'); }
JsonWriter& JsonWriter::EndObject() { return Close('}'); }
JsonWriter& JsonWriter::BeginArray() { return Open('['); }
JsonWriter& JsonWriter::EndArray() { return Close(']'); }

JsonWriter& JsonWriter::Open(char bracket) {
    BeforeValue();
    out_ += bracket;
    hasValue_.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::Close(char bracket) {
    out_ += bracket;
    if (!hasValue_.empty()) hasValue_.pop_back();
    return *this;
}

JsonWriter& JsonWriter::Key(std::string_view name) {
    BeforeValue();
    Quoted(name);
    out_ += ':';
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::String(std::string_view utf8) {
    BeforeValue();
    Quoted(utf8);
    return *this;
}

JsonWriter& JsonWriter::String(std::u16string_view utf16) {
    return String(Utf16ToUtf8(utf16));
}

JsonWriter& JsonWriter::Int(int64_t value) {
    BeforeValue();
    out_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::UInt(uint64_t value) {
    BeforeValue();
    out_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
    BeforeValue();
    out_ += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Null() {
    BeforeValue();
    out_ += "null";
    return *this;
}

// A value right after its key needs no comma; any other one does when its
// container holds something already.
void JsonWriter::BeforeValue() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (hasValue_.empty()) return;
    if (hasValue_.back()) out_ += ',';
    hasValue_.back() = true;
}

void JsonWriter::Quoted(std::string_view utf8) {
    // The round trip through UTF-16 replaces invalid sequences.
    const std::string clean = Utf16ToUtf8(Utf8ToUtf16(utf8));
    out_ += '"';
    for (const char c : clean) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
        case '"': out_ += "\\\""; continue;
        case '\\': out_ += "\\\\"; continue;
        case '\b': out_ += "\\b"; continue;
        case '\f': out_ += "\\f"; continue;
        case '\n': out_ += "\\n"; continue;
        case '\r': out_ += "\\r"; continue;
        case '\t': out_ += "\\t"; continue;
        default: break;
        }
        if (byte < 0x20 || byte == 0x7F) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            out_ += escaped;
            continue;
        }
        out_ += c;
    }
    out_ += '"';
}

}  // namespace host
