#include "host/jsonread.h"

#include <cstdlib>
#include <string>

#include "host/errors.h"
#include "host/text.h"

namespace host {
namespace {

constexpr int kDeepestNesting = 64;

class JsonParser {
public:
    explicit JsonParser(std::string_view text) : text_(text) {}

    JsonValue Document() {
        JsonValue value = Value(0);
        SkipBlanks();
        if (pos_ != text_.size()) Fail("text behind the document");
        return value;
    }

private:
    [[noreturn]] void Fail(const std::string& what) const {
        throw UsageError("JSON: " + what + " at byte " + std::to_string(pos_));
    }

    void SkipBlanks() {
        while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t' || text_[pos_] == '\n' ||
                                       text_[pos_] == '\r')) {
            ++pos_;
        }
    }

    char Peek() {
        SkipBlanks();
        if (pos_ >= text_.size()) Fail("unexpected end");
        return text_[pos_];
    }

    void Expect(char c) {
        if (Peek() != c) Fail(std::string("expected '") + c + "'");
        ++pos_;
    }

    bool TakeWord(std::string_view word) {
        if (text_.substr(pos_, word.size()) != word) return false;
        pos_ += word.size();
        return true;
    }

    JsonValue Value(int depth) {
        if (depth > kDeepestNesting) Fail("nesting too deep");
        JsonValue value;
        char c = Peek();
        if (c == '{') return Object(depth);
        if (c == '[') return Array(depth);
        if (c == '"') {
            value.kind = JsonValue::Kind::kString;
            value.text = String();
            return value;
        }
        if (TakeWord("null")) return value;
        if (TakeWord("true")) {
            value.kind = JsonValue::Kind::kBool;
            value.boolean = true;
            return value;
        }
        if (TakeWord("false")) {
            value.kind = JsonValue::Kind::kBool;
            return value;
        }
        return Number();
    }

    JsonValue Number() {
        size_t start = pos_;
        while (pos_ < text_.size() && std::string_view("+-0123456789.eE").find(text_[pos_]) != std::string_view::npos) {
            ++pos_;
        }
        if (start == pos_) Fail("unexpected character");
        std::string digits(text_.substr(start, pos_ - start));
        char* end = nullptr;
        JsonValue value;
        value.kind = JsonValue::Kind::kNumber;
        value.number = std::strtod(digits.c_str(), &end);
        if (end != digits.c_str() + digits.size()) Fail("malformed number");
        return value;
    }

    JsonValue Array(int depth) {
        JsonValue value;
        value.kind = JsonValue::Kind::kArray;
        Expect('[');
        if (Peek() == ']') {
            ++pos_;
            return value;
        }
        for (;;) {
            value.items.push_back(Value(depth + 1));
            if (Peek() == ']') break;
            Expect(',');
        }
        ++pos_;
        return value;
    }

    JsonValue Object(int depth) {
        JsonValue value;
        value.kind = JsonValue::Kind::kObject;
        Expect('{');
        if (Peek() == '}') {
            ++pos_;
            return value;
        }
        for (;;) {
            if (Peek() != '"') Fail("expected a member name");
            std::string name = String();
            Expect(':');
            value.members.push_back({std::move(name), Value(depth + 1)});
            if (Peek() == '}') break;
            Expect(',');
        }
        ++pos_;
        return value;
    }

    unsigned Hex4() {
        if (text_.size() - pos_ < 4) Fail("short \\u escape");
        unsigned unit = 0;
        for (int i = 0; i < 4; ++i) {
            char c = text_[pos_++];
            unit <<= 4;
            if (c >= '0' && c <= '9') unit |= static_cast<unsigned>(c - '0');
            else if (c >= 'a' && c <= 'f') unit |= static_cast<unsigned>(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F') unit |= static_cast<unsigned>(c - 'A' + 10);
            else Fail("bad \\u escape");
        }
        return unit;
    }

    // A lone surrogate becomes U+FFFD, as everywhere else in fdhost.
    unsigned EscapedCode() {
        unsigned unit = Hex4();
        if (unit < 0xD800 || unit > 0xDFFF) return unit;
        if (unit > 0xDBFF || text_.substr(pos_, 2) != "\\u") return 0xFFFD;
        size_t back = pos_;
        pos_ += 2;
        unsigned low = Hex4();
        if (low < 0xDC00 || low > 0xDFFF) {
            pos_ = back;
            return 0xFFFD;
        }
        return JoinSurrogates(unit, low);
    }

    std::string String() {
        ++pos_;   // the opening quote
        std::string out;
        for (;;) {
            if (pos_ >= text_.size()) Fail("unterminated string");
            char c = text_[pos_++];
            if (c == '"') return out;
            if (static_cast<unsigned char>(c) < 0x20) Fail("control character in a string");
            if (c != '\\') {
                out += c;
                continue;
            }
            if (pos_ >= text_.size()) Fail("unterminated string");
            char e = text_[pos_++];
            switch (e) {
            case '"': case '\\': case '/': out += e; break;
            case 'b': out += '\b'; break;
            case 'f': out += '\f'; break;
            case 'n': out += '\n'; break;
            case 'r': out += '\r'; break;
            case 't': out += '\t'; break;
            case 'u': AppendUtf8(out, EscapedCode()); break;
            default: Fail("bad escape");
            }
        }
    }

    std::string_view text_;
    size_t pos_ = 0;
};

}  // namespace

const JsonValue* JsonValue::Member(std::string_view name) const {
    for (const JsonMember& member : members) {
        if (member.name == name) return &member.value;
    }
    return nullptr;
}

JsonValue ParseJson(std::string_view text) { return JsonParser(text).Document(); }

}  // namespace host
