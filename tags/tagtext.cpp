#include "tags/tagtext.h"

#include <string>

namespace {

char16_t FoldAscii(char16_t c) { return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c; }

constexpr std::u16string_view kMultiValueNames[] = {u"artist", u"genre", u"composer", u"style",
                                                   u"Album Artist"};

}  // namespace

bool EqualsNoCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (FoldAscii(a[i]) != FoldAscii(b[i])) return false;
    }
    return true;
}

bool StartsWithNoCase(std::u16string_view text, std::u16string_view prefix) {
    return text.size() >= prefix.size() && EqualsNoCase(text.substr(0, prefix.size()), prefix);
}

bool IsMultiValueName(std::u16string_view name) {
    for (std::u16string_view candidate : kMultiValueNames) {
        if (EqualsNoCase(name, candidate)) return true;
    }
    return false;
}

clString ReplaceAll(const clString& text, std::u16string_view from, std::u16string_view to) {
    if (from.empty()) return text;
    std::u16string_view source = text.View();
    std::u16string result;
    result.reserve(source.size());
    size_t start = 0;
    for (size_t hit = source.find(from); hit != std::u16string_view::npos; hit = source.find(from, start)) {
        result.append(source.substr(start, hit - start));
        result.append(to);
        start = hit + from.size();
    }
    result.append(source.substr(start));
    return clString(std::u16string_view(result));
}
