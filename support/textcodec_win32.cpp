// The system's own conversions, without strict flags. Where systems differ
// in the details of bad input (Wine and Windows count the replacements of an
// overlong or surrogate sequence differently), the input is cut so that the
// result is the same everywhere, and the same as the Linux build's: the
// system converts the well-formed runs of UTF-8, and each maximal ill-formed
// subpart becomes one U+FFFD. Towards ANSI and Latin-1 best-fit mapping is
// off, and a surrogate pair goes as one U+FFFD, so every character the page
// lacks becomes one "?".

#include "support/textcodec.h"

#include <windows.h>

#include <algorithm>
#include <climits>

namespace text {
namespace {

constexpr UINT kAnsi = CP_ACP;        // 0
constexpr UINT kLatin1 = 28591;
constexpr UINT kUtf8 = CP_UTF8;       // 65001

// The calls take int lengths; longer texts go in pieces that never split a
// character: 8-bit pages by bytes, UTF-8 only at a lead byte.
constexpr size_t kPiece = INT_MAX / 4;

size_t Utf8PieceEnd(std::string_view bytes, size_t start) {
    size_t end = start + kPiece;
    if (end >= bytes.size()) return bytes.size();
    while (end > start && (static_cast<unsigned char>(bytes[end]) & 0xC0) == 0x80) --end;
    return end;
}

size_t Utf16PieceEnd(std::u16string_view units, size_t start) {
    size_t end = start + kPiece;
    if (end >= units.size()) return units.size();
    if (units[end] >= 0xDC00 && units[end] <= 0xDFFF) --end;
    return end;
}

std::u16string ToWide(UINT codePage, std::string_view bytes) {
    std::u16string out;
    for (size_t start = 0; start < bytes.size();) {
        const size_t end = codePage == kUtf8 ? Utf8PieceEnd(bytes, start) : std::min(bytes.size(), start + kPiece);
        const int length = static_cast<int>(end - start);
        const int needed = ::MultiByteToWideChar(codePage, 0, bytes.data() + start, length, nullptr, 0);
        if (needed <= 0) return out;
        const size_t at = out.size();
        out.resize(at + static_cast<size_t>(needed));
        const int made = ::MultiByteToWideChar(codePage, 0, bytes.data() + start, length,
                                               reinterpret_cast<wchar_t*>(out.data() + at), needed);
        out.resize(at + static_cast<size_t>(made > 0 ? made : 0));
        start = end;
    }
    return out;
}

std::string FromWide(UINT codePage, std::u16string_view units) {
    std::string out;
    // UTF-8 takes no flags; the 8-bit pages map what they lack to "?".
    const DWORD flags = codePage == kUtf8 ? 0 : WC_NO_BEST_FIT_CHARS;
    for (size_t start = 0; start < units.size();) {
        const size_t end = Utf16PieceEnd(units, start);
        const int length = static_cast<int>(end - start);
        const auto* wide = reinterpret_cast<const wchar_t*>(units.data() + start);
        const int needed = ::WideCharToMultiByte(codePage, flags, wide, length, nullptr, 0, nullptr, nullptr);
        if (needed <= 0) return out;
        const size_t at = out.size();
        out.resize(at + static_cast<size_t>(needed));
        const int made = ::WideCharToMultiByte(codePage, flags, wide, length, out.data() + at, needed, nullptr, nullptr);
        out.resize(at + static_cast<size_t>(made > 0 ? made : 0));
        start = end;
    }
    return out;
}

// Length of the well-formed sequence at `at`, or 0 with `bad` set to the
// length of its maximal ill-formed subpart (at least 1).
size_t WellFormedLength(std::string_view bytes, size_t at, size_t& bad) {
    const auto lead = static_cast<unsigned char>(bytes[at]);
    size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) length = 2;
    if (lead >= 0xE0 && lead <= 0xEF) length = 3;
    if (lead >= 0xF0 && lead <= 0xF4) length = 4;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
    size_t taken = 1;
    while (length != 0 && taken < length && at + taken < bytes.size()) {
        const auto next = static_cast<unsigned char>(bytes[at + taken]);
        if (next < low || next > high) break;
        low = 0x80;
        high = 0xBF;
        ++taken;
    }
    if (length != 0 && taken == length) return length;
    bad = taken;
    return 0;
}

// A pair becomes U+FFFD: no 8-bit page holds a character beyond the BMP, and
// systems differ in how many "?" they give for the two units.
std::u16string PairsReplaced(std::u16string_view units) {
    std::u16string out(units);
    size_t kept = 0;
    for (size_t i = 0; i < out.size(); ++i) {
        const bool pair = out[i] >= 0xD800 && out[i] <= 0xDBFF && i + 1 < out.size() && out[i + 1] >= 0xDC00 &&
                          out[i + 1] <= 0xDFFF;
        out[kept++] = pair ? char16_t{0xFFFD} : out[i];
        if (pair) ++i;
    }
    out.resize(kept);
    return out;
}

}  // namespace

std::u16string Utf8ToUtf16(std::string_view bytes) {
    std::u16string out;
    size_t runStart = 0;
    for (size_t at = 0; at < bytes.size();) {
        size_t bad = 0;
        const size_t length = WellFormedLength(bytes, at, bad);
        if (length != 0) {
            at += length;
            continue;
        }
        out += ToWide(kUtf8, bytes.substr(runStart, at - runStart));
        out += char16_t{0xFFFD};
        at += bad;
        runStart = at;
    }
    return out + ToWide(kUtf8, bytes.substr(runStart));
}
std::string Utf16ToUtf8(std::u16string_view units) { return FromWide(kUtf8, units); }
std::u16string AnsiToUtf16(std::string_view bytes) { return ToWide(kAnsi, bytes); }
std::string Utf16ToAnsi(std::u16string_view units) { return FromWide(kAnsi, PairsReplaced(units)); }
std::u16string Latin1ToUtf16(std::string_view bytes) { return ToWide(kLatin1, bytes); }
std::string Utf16ToLatin1(std::u16string_view units) { return FromWide(kLatin1, PairsReplaced(units)); }

}  // namespace text
