#pragma once
// TagValues, the pivot of the ID3v2 engine: tag name to a list of UTF-8
// strings, names compared with ASCII-only case folding.

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace id3parser {

struct NoCaseLess {
    bool operator()(std::string_view a, std::string_view b) const;
};

using TagValues = std::map<std::string, std::vector<std::string>, NoCaseLess>;

bool equalsNoCase(std::string_view a, std::string_view b);
bool startsWithNoCase(std::string_view text, std::string_view prefix);

// Appends `text` to the list of `name`; an empty text adds nothing, not even the name.
void addValue(TagValues& values, const std::string& name, const std::string& text);
// Removes later "Year" values equal to an earlier one.
void dedupeYear(TagValues& values);

// "#" is one ASCII digit, every other character itself; the text ends with the shape.
bool matchesShape(std::string_view text, std::string_view shape);

}  // namespace id3parser
