#pragma once
// UTF-8 <-> UTF-16 for fdhost's arguments and output. fdhost links nothing of
// the plug-in, so it carries its own small converters. Bad input never fails:
// an invalid UTF-8 sequence or a lone surrogate becomes U+FFFD.

#include <filesystem>
#include <string>
#include <string_view>

namespace host {

std::u16string Utf8ToUtf16(std::string_view bytes);
std::string Utf16ToUtf8(std::u16string_view units);
// One code point (at most U+10FFFF) as UTF-8.
void AppendUtf8(std::string& out, char32_t cp);
// The code point of a high and a low surrogate.
char32_t JoinSurrogates(char32_t high, char32_t low);
// A NUL-terminated wide string from the plug-in; null gives an empty view.
std::u16string_view WideView(const char16_t* text);

// Equal but for ASCII letter case, as tag names and picture type names compare.
bool EqualsNoCase(std::string_view a, std::string_view b);
bool EqualsNoCase(std::u16string_view a, std::u16string_view b);
bool StartsWithNoCase(std::u16string_view text, std::u16string_view prefix);

// Control characters (below 0x20 and 0x7F) as \xNN, so that a tag value
// can't move the cursor or change the colours of a terminal.
std::string EscapeControls(std::string_view utf8);

// File-system paths from and to UTF-8, whatever the system's own encoding.
std::filesystem::path Utf8Path(std::string_view utf8);
std::string PathUtf8(const std::filesystem::path& path);

}  // namespace host
