#include "tags/id3v2/tagvalues.h"

#include <cstdint>
#include <functional>

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

// Later values equal to an earlier one go, found through an open-addressed
// table of indexes: linear, and a few bytes per value.
void dedupeYear(TagValues& values) {
    auto found = values.find("Year");
    if (found == values.end() || found->second.size() < 2) return;
    std::vector<std::string>& list = found->second;
    size_t capacity = 4;
    while (capacity < 2 * list.size()) capacity *= 2;
    constexpr uint32_t kFree = UINT32_MAX;
    std::vector<uint32_t> slots(capacity, kFree);
    std::vector<std::string> unique;
    for (std::string& value : list) {
        size_t slot = std::hash<std::string>{}(value) & (capacity - 1);
        while (slots[slot] != kFree && unique[slots[slot]] != value) slot = (slot + 1) & (capacity - 1);
        if (slots[slot] != kFree) continue;
        slots[slot] = static_cast<uint32_t>(unique.size());
        unique.push_back(std::move(value));
    }
    list.swap(unique);
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
