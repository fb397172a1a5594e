#pragma once
// Small text rules that the tag engines share. Tag names compare with ASCII-only
// case folding.

#include <string_view>

#include "support/clString.h"

bool EqualsNoCase(std::u16string_view a, std::u16string_view b);
bool StartsWithNoCase(std::u16string_view text, std::u16string_view prefix);
// "artist", "genre", "composer", "style", "Album Artist": the names whose CR
// separates several values that a format stores apart.
bool IsMultiValueName(std::u16string_view name);
// Every occurrence of `from`, exactly; scanning goes on behind what was inserted.
clString ReplaceAll(const clString& text, std::u16string_view from, std::u16string_view to);
