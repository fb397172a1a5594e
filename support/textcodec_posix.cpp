// Own converters: Linux has no code-page service the plug-in could rely on
// without pulling in a library, and the rules must match what the Windows
// build produces for the same bytes.

#include "support/textcodec.h"

#include <array>
#include <cstdint>

namespace text {
namespace {

constexpr char16_t kReplacement = 0xFFFD;

bool IsContinuation(uint8_t byte) { return (byte & 0xC0) == 0x80; }

// The range the second byte of a sequence may take for a given lead byte.
// It excludes overlongs (E0 80.., F0 80..), surrogates (ED A0..) and code
// points above U+10FFFF (F4 90..), so that each such sequence breaks off at
// its first bad byte and yields one replacement per maximal subpart.
struct SecondByteRange {
    uint8_t low;
    uint8_t high;
};

SecondByteRange SecondRangeFor(uint8_t lead) {
    if (lead == 0xE0) return {0xA0, 0xBF};
    if (lead == 0xED) return {0x80, 0x9F};
    if (lead == 0xF0) return {0x90, 0xBF};
    if (lead == 0xF4) return {0x80, 0x8F};
    return {0x80, 0xBF};
}

// Number of bytes of a well-formed sequence starting with `lead`, 0 when the
// byte can never start one (continuations, C0, C1, F5..FF).
int SequenceLength(uint8_t lead) {
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return 2;
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 0;
}

void AppendCodePoint(std::u16string& out, char32_t cp) {
    if (cp < 0x10000) {
        out.push_back(static_cast<char16_t>(cp));
        return;
    }
    cp -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
}

void AppendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

bool IsHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// Reads one code point from UTF-16 at `i`, advancing it; an unpaired
// surrogate comes back as U+FFFD.
char32_t NextCodePoint(std::u16string_view units, size_t& i) {
    const char16_t unit = units[i++];
    if (IsHighSurrogate(unit)) {
        if (i < units.size() && IsLowSurrogate(units[i])) {
            const char16_t low = units[i++];
            return 0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) + (low - 0xDC00);
        }
        return kReplacement;
    }
    if (IsLowSurrogate(unit)) return kReplacement;
    return unit;
}

// Windows-1252 for 0x80..0x9F. The five bytes that the page leaves undefined
// map to the C1 control of the same value, as the Windows conversion does.
constexpr std::array<char16_t, 32> kCp1252High = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

char32_t Cp1252ToCodePoint(uint8_t byte) {
    if (byte >= 0x80 && byte <= 0x9F) return kCp1252High[byte - 0x80];
    return byte;
}

char CodePointToCp1252(char32_t cp) {
    if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<char>(cp);
    for (size_t i = 0; i < kCp1252High.size(); ++i) {
        if (kCp1252High[i] == cp) return static_cast<char>(0x80 + i);
    }
    return '?';
}

}  // namespace

std::u16string Utf8ToUtf16(std::string_view bytes) {
    std::u16string out;
    out.reserve(bytes.size());
    size_t i = 0;
    const size_t n = bytes.size();
    while (i < n) {
        const auto lead = static_cast<uint8_t>(bytes[i]);
        const int length = SequenceLength(lead);
        if (length == 1) {
            out.push_back(lead);
            ++i;
            continue;
        }
        if (length == 0) {
            out.push_back(kReplacement);
            ++i;
            continue;
        }
        // Consume as much of the sequence as is valid; a break-off anywhere
        // gives one replacement for the bytes taken so far.
        char32_t cp = lead & (0xFF >> (length + 1));
        size_t taken = 1;
        bool complete = true;
        for (int k = 1; k < length; ++k) {
            if (i + taken >= n) {
                complete = false;
                break;
            }
            const auto byte = static_cast<uint8_t>(bytes[i + taken]);
            const SecondByteRange range = k == 1 ? SecondRangeFor(lead) : SecondByteRange{0x80, 0xBF};
            if (byte < range.low || byte > range.high || !IsContinuation(byte)) {
                complete = false;
                break;
            }
            cp = (cp << 6) | (byte & 0x3F);
            ++taken;
        }
        i += taken;
        if (complete) {
            AppendCodePoint(out, cp);
        } else {
            out.push_back(kReplacement);
        }
    }
    return out;
}

std::string Utf16ToUtf8(std::u16string_view units) {
    std::string out;
    out.reserve(units.size());
    size_t i = 0;
    while (i < units.size()) AppendUtf8(out, NextCodePoint(units, i));
    return out;
}

std::u16string AnsiToUtf16(std::string_view bytes) {
    std::u16string out;
    out.reserve(bytes.size());
    for (char c : bytes) out.push_back(static_cast<char16_t>(Cp1252ToCodePoint(static_cast<uint8_t>(c))));
    return out;
}

std::string Utf16ToAnsi(std::u16string_view units) {
    std::string out;
    out.reserve(units.size());
    size_t i = 0;
    while (i < units.size()) out.push_back(CodePointToCp1252(NextCodePoint(units, i)));
    return out;
}

std::u16string Latin1ToUtf16(std::string_view bytes) {
    std::u16string out;
    out.reserve(bytes.size());
    for (char c : bytes) out.push_back(static_cast<uint8_t>(c));
    return out;
}

std::string Utf16ToLatin1(std::u16string_view units) {
    std::string out;
    out.reserve(units.size());
    size_t i = 0;
    while (i < units.size()) {
        const char32_t cp = NextCodePoint(units, i);
        out.push_back(cp <= 0xFF ? static_cast<char>(cp) : '?');
    }
    return out;
}

}  // namespace text
