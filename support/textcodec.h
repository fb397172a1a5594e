#pragma once
// The text seam: conversions between 8-bit code pages and UTF-16. Invalid
// input is treated as the Windows conversion calls treat it without
// MB_ERR_INVALID_CHARS: a bad UTF-8 sequence becomes U+FFFD, a lone surrogate
// becomes U+FFFD on the way to UTF-8, a character that the ANSI or Latin-1
// page lacks becomes "?". On Linux "ANSI" is Windows-1252.

#include <string>
#include <string_view>

namespace text {

std::u16string Utf8ToUtf16(std::string_view bytes);
std::string Utf16ToUtf8(std::u16string_view units);
std::u16string AnsiToUtf16(std::string_view bytes);
std::string Utf16ToAnsi(std::u16string_view units);
std::u16string Latin1ToUtf16(std::string_view bytes);
std::string Utf16ToLatin1(std::u16string_view units);

}  // namespace text
