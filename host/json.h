#pragma once
// A small JSON writer for fdhost's --json output. It places the commas
// itself, escapes quotes, backslashes and control characters, and writes
// other text as UTF-8; invalid UTF-8 in a string becomes U+FFFD, so the
// output is always valid JSON.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host {

class JsonWriter {
public:
    JsonWriter() = default;

    JsonWriter& BeginObject();
    JsonWriter& EndObject();
    JsonWriter& BeginArray();
    JsonWriter& EndArray();
    // Inside an object: the name of the next value.
    JsonWriter& Key(std::string_view name);
    JsonWriter& String(std::string_view utf8);
    JsonWriter& String(std::u16string_view utf16);
    JsonWriter& Int(int64_t value);
    JsonWriter& UInt(uint64_t value);
    JsonWriter& Bool(bool value);
    JsonWriter& Null();

    // The document so far; complete once every Begin has its End.
    const std::string& Text() const { return out_; }

private:
    void BeforeValue();
    JsonWriter& Open(char bracket);
    JsonWriter& Close(char bracket);
    void Quoted(std::string_view utf8);

    std::string out_;
    // One entry per open container: whether it holds a value already.
    std::vector<bool> hasValue_;
    bool afterKey_ = false;
};

}  // namespace host
