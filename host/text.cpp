#include "host/text.h"

#include <cstdint>

namespace host {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Decodes one code point at bytes[pos]; advances pos by what was consumed.
// Overlong forms, surrogates and values above U+10FFFF are invalid.
char32_t DecodeUtf8(std::string_view bytes, size_t& pos) {
    const auto lead = static_cast<unsigned char>(bytes[pos]);
    ++pos;
    if (lead < 0x80) return lead;
    int more = 0;
    char32_t value = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
        more = 1; value = lead & 0x1F; minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        more = 2; value = lead & 0x0F; minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        more = 3; value = lead & 0x07; minimum = 0x10000;
    } else {
        return kReplacement;
    }
    for (int i = 0; i < more; ++i) {
        if (pos >= bytes.size() || !IsContinuation(static_cast<unsigned char>(bytes[pos]))) {
            return kReplacement;
        }
        value = (value << 6) | (static_cast<unsigned char>(bytes[pos]) & 0x3F);
        ++pos;
    }
    if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        return kReplacement;
    }
    return value;
}

bool IsHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

}  // namespace

void AppendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

char32_t JoinSurrogates(char32_t high, char32_t low) { return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00); }

std::u16string Utf8ToUtf16(std::string_view bytes) {
    std::u16string out;
    out.reserve(bytes.size());
    size_t pos = 0;
    while (pos < bytes.size()) {
        const char32_t cp = DecodeUtf8(bytes, pos);
        if (cp < 0x10000) {
            out += static_cast<char16_t>(cp);
            continue;
        }
        const char32_t v = cp - 0x10000;
        out += static_cast<char16_t>(0xD800 + (v >> 10));
        out += static_cast<char16_t>(0xDC00 + (v & 0x3FF));
    }
    return out;
}

std::string Utf16ToUtf8(std::u16string_view units) {
    std::string out;
    out.reserve(units.size());
    for (size_t i = 0; i < units.size(); ++i) {
        const char16_t unit = units[i];
        if (IsHighSurrogate(unit) && i + 1 < units.size() && IsLowSurrogate(units[i + 1])) {
            AppendUtf8(out, JoinSurrogates(unit, units[i + 1]));
            ++i;
            continue;
        }
        if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
            AppendUtf8(out, kReplacement);
            continue;
        }
        AppendUtf8(out, unit);
    }
    return out;
}

std::u16string_view WideView(const char16_t* text) {
    if (text == nullptr) return {};
    return std::u16string_view(text);
}

std::string EscapeControls(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            out += c;
            continue;
        }
        static constexpr char kHex[] = "0123456789ABCDEF";
        out += "\\x";
        out += kHex[byte >> 4];
        out += kHex[byte & 0xF];
    }
    return out;
}

std::filesystem::path Utf8Path(std::string_view utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string PathUtf8(const std::filesystem::path& path) {
    const std::u8string units = path.u8string();
    return std::string(units.begin(), units.end());
}

namespace {

template <typename Char>
bool EqualsFolded(std::basic_string_view<Char> a, std::basic_string_view<Char> b) {
    const auto fold = [](Char c) { return c >= Char('A') && c <= Char('Z') ? Char(c + 32) : c; };
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (fold(a[i]) != fold(b[i])) return false;
    }
    return true;
}

}  // namespace

bool EqualsNoCase(std::string_view a, std::string_view b) { return EqualsFolded(a, b); }

bool EqualsNoCase(std::u16string_view a, std::u16string_view b) { return EqualsFolded(a, b); }

bool StartsWithNoCase(std::u16string_view text, std::u16string_view prefix) {
    return text.size() >= prefix.size() && EqualsNoCase(text.substr(0, prefix.size()), prefix);
}

}  // namespace host
