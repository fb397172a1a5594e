#include "tags/id3v2/tagvalues.h"

#include <unordered_set>

#include <algorithm>

namespace id3parser {

namespace {

unsigned char Fold(char c) {
    const auto u = static_cast<unsigned char>(c);
    return u >= 'A' && u <= 'Z' ? static_cast<unsigned char>(u + ('a' - 'A')) : u;
}

}  // namespace

bool NoCaseLess::operator()(std::string_view a, std::string_view b) const {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char x, char y) { return Fold(x) < Fold(y); });
}

bool equalsNoCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return Fold(x) == Fold(y); });
}

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && equalsNoCase(text.substr(0, prefix.size()), prefix);
}

void addValue(TagValues& values, const std::string& name, const std::string& text) {
    if (!text.empty()) values[name].push_back(text);
}

void dedupeYear(TagValues& values) {
    auto found = values.find("Year");
    if (found == values.end() || found->second.size() < 2) return;
    std::unordered_set<std::string_view> seen;
    std::vector<std::string> unique;
    unique.reserve(found->second.size());
    for (const std::string& value : found->second) {
        if (seen.insert(value).second) unique.push_back(value);
    }
    found->second.swap(unique);
}

bool matchesShape(std::string_view text, std::string_view shape) {
    if (text.size() != shape.size()) return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool ok = shape[i] == '#' ? text[i] >= '0' && text[i] <= '9' : text[i] == shape[i];
        if (!ok) return false;
    }
    return true;
}

}  // namespace id3parser
