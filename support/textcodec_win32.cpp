// The system's own conversions. No strict flags: invalid UTF-8 becomes
// U+FFFD and a lone surrogate becomes U+FFFD on the way to UTF-8, as the Linux
// converters do. Towards ANSI and Latin-1 best-fit mapping is off, so a
// character the page lacks becomes "?" there too.

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

}  // namespace

std::u16string Utf8ToUtf16(std::string_view bytes) { return ToWide(kUtf8, bytes); }
std::string Utf16ToUtf8(std::u16string_view units) { return FromWide(kUtf8, units); }
std::u16string AnsiToUtf16(std::string_view bytes) { return ToWide(kAnsi, bytes); }
std::string Utf16ToAnsi(std::u16string_view units) { return FromWide(kAnsi, units); }
std::u16string Latin1ToUtf16(std::string_view bytes) { return ToWide(kLatin1, bytes); }
std::string Utf16ToLatin1(std::u16string_view units) { return FromWide(kLatin1, units); }

}  // namespace text
