// The text conversions and the string-list builders on arbitrary bytes. The
// bytes are read both as 8-bit text and as UTF-16 units.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/clList.h"
#include "support/clString.h"
#include "support/textcodec.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

bool IsHigh(char16_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool IsLow(char16_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

// The units with every unpaired surrogate replaced: what a trip through
// UTF-8 must give back.
std::u16string WithoutLoneSurrogates(const std::u16string& units) {
    std::u16string out;
    for (size_t i = 0; i < units.size(); ++i) {
        if (IsHigh(units[i]) && i + 1 < units.size() && IsLow(units[i + 1])) {
            out.push_back(units[i]);
            out.push_back(units[++i]);
        } else if (IsHigh(units[i]) || IsLow(units[i])) {
            out.push_back(0xFFFD);
        } else {
            out.push_back(units[i]);
        }
    }
    return out;
}

// UTF-8 written here a code point at a time, lone surrogates as U+FFFD:
// what the converter must give.
std::string EncodeUtf8(const std::u16string& units) {
    static const int kLead[] = {0, 0, 0xC0, 0xE0, 0xF0};
    std::string out;
    for (size_t i = 0; i < units.size(); ++i) {
        char32_t cp = units[i];
        if (IsHigh(units[i]) && i + 1 < units.size() && IsLow(units[i + 1])) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (units[++i] - 0xDC00);
        } else if (IsHigh(units[i]) || IsLow(units[i])) {
            cp = 0xFFFD;
        }
        const int n = cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
        out.push_back(static_cast<char>(kLead[n] | static_cast<int>(cp >> (6 * (n - 1)))));
        for (int k = n - 2; k >= 0; --k) out.push_back(static_cast<char>(0x80 | ((cp >> (6 * k)) & 0x3F)));
    }
    return out;
}

void AppendUtf16(std::u16string& out, char32_t cp) {
    if (cp < 0x10000) {
        out.push_back(static_cast<char16_t>(cp));
        return;
    }
    out.push_back(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
}

// UTF-8 read here as the Unicode standard recommends: one U+FFFD for each
// maximal subpart of an ill-formed sequence.
std::u16string DecodeUtf8(const std::string& bytes) {
    std::u16string out;
    for (size_t i = 0; i < bytes.size();) {
        const auto lead = static_cast<uint8_t>(bytes[i]);
        size_t length = 0;
        uint8_t low = 0x80, high = 0xBF;   // the second byte's range
        if (lead < 0x80) length = 1;
        if (lead >= 0xC2 && lead <= 0xDF) length = 2;
        if (lead >= 0xE0 && lead <= 0xEF) length = 3;
        if (lead >= 0xF0 && lead <= 0xF4) length = 4;
        if (lead == 0xE0) low = 0xA0;   // no overlong forms, no surrogates, nothing above U+10FFFF
        if (lead == 0xED) high = 0x9F;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
        char32_t cp = length == 1 ? lead : lead & (0x7F >> length);
        size_t taken = 1;
        for (; length > 1 && taken < length && i + taken < bytes.size(); ++taken) {
            const auto next = static_cast<uint8_t>(bytes[i + taken]);
            if (next < (taken == 1 ? low : 0x80) || next > (taken == 1 ? high : 0xBF)) break;
            cp = cp << 6 | (next & 0x3F);
        }
        i += taken;
        AppendUtf16(out, taken == length ? cp : 0xFFFD);
    }
    return out;
}

void CheckEightBit(const std::string& bytes) {
    const std::u16string wide = text::Utf8ToUtf16(bytes);
    Require(wide == DecodeUtf8(bytes));
    Require(wide.size() <= bytes.size());
    Require(WithoutLoneSurrogates(wide) == wide);
    // What the decoder gives is valid, and valid UTF-8 round-trips exactly.
    const std::string utf8 = text::Utf16ToUtf8(wide);
    Require(text::Utf8ToUtf16(utf8) == wide);
    Require(text::Utf16ToUtf8(text::Utf8ToUtf16(utf8)) == utf8);

    const std::u16string ansi = text::AnsiToUtf16(bytes);
    Require(ansi.size() == bytes.size());
    Require(text::Utf16ToAnsi(ansi) == bytes);
    const std::u16string latin1 = text::Latin1ToUtf16(bytes);
    Require(latin1.size() == bytes.size());
    Require(text::Utf16ToLatin1(latin1) == bytes);
}

void CheckUnits(const std::u16string& units) {
    const std::u16string clean = WithoutLoneSurrogates(units);
    const std::string utf8 = EncodeUtf8(units);
    Require(text::Utf16ToUtf8(units) == utf8);
    Require(text::Utf8ToUtf16(utf8) == clean);
    Require(text::Utf16ToAnsi(units).size() <= units.size());
    Require(text::Utf16ToLatin1(units).size() <= units.size());

    clString s{std::u16string_view(units)};
    clStringList list;
    list.Split(s);
    std::u16string joined;
    for (int i = 0; i < list.Count(); ++i) {
        if (i > 0) joined.push_back(u'\r');
        joined.append(list[i].View());
    }
    Require(joined == units);

    // A multi-string block: the units, then the two NULs that end it.
    std::vector<char16_t> block(units.begin(), units.end());
    block.push_back(0);
    block.push_back(0);
    list.FromMultiString(block.data());
    size_t total = 0;
    for (int i = 0; i < list.Count(); ++i) {
        Require(list[i].View().find(u'\0') == std::u16string_view::npos);
        Require(list[i].View() != u"[Empty]");
        total += list[i].View().size() + 1;
    }
    Require(total <= block.size());

    (void)s.ToInt();
    (void)s.ToDouble();
    (void)s.FileExtension();
    s.TrimLeft();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    CheckEightBit(bytes);
    std::u16string units(size / 2, u'\0');
    for (size_t i = 0; i < units.size(); ++i) {
        units[i] = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
    }
    CheckUnits(units);
    return 0;
}
