#pragma once
// A small JSON reader for fdhost's input files. Strings come out as UTF-8;
// \u escapes, surrogate pairs included, are decoded. Nesting is limited so
// that a hostile file can't exhaust the stack.

#include <string>
#include <string_view>
#include <vector>

namespace host {

struct JsonMember;

struct JsonValue {
    enum class Kind { kNull, kBool, kNumber, kString, kArray, kObject };

    Kind kind = Kind::kNull;
    bool boolean = false;
    double number = 0;
    std::string text;                                 // kString, UTF-8
    std::vector<JsonValue> items;                     // kArray
    std::vector<JsonMember> members;                  // kObject, in file order

    // The member of that name, or null when there is none.
    const JsonValue* Member(std::string_view name) const;
};

struct JsonMember {
    std::string name;
    JsonValue value;
};

// Throws UsageError naming the byte offset of the first thing that isn't JSON.
JsonValue ParseJson(std::string_view text);

}  // namespace host
