// Picture removal over arbitrary key lists. Lines of the input: the type name,
// the description, then one entry name per line. Whatever the names, a miss
// changes nothing, and a hit leaves the pictures numbered from 1 without gaps
// behind every entry that isn't hidden, in their old order.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/scratchfile.h"
#include "tags/idtags.h"
#include "tags/picturenaming.h"
#include "tags/tagtext.h"

namespace {

std::vector<std::string> Lines(std::string_view text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string_view::npos; start = end + 1) {
        lines.emplace_back(text.substr(start, end - start));
    }
    lines.emplace_back(text.substr(start));
    return lines;
}

std::vector<std::u16string> Names(const IDTags& tags) {
    std::vector<std::u16string> names;
    for (int i = 0; i < tags.Count(); ++i) names.emplace_back(tags[i].Name.View());
    return names;
}

bool IsVisible(const IDTag& tag) { return tag.Name.Empty() || tag.Name[0] != u'_'; }

void CheckRemoval(const IDTags& before, const IDTags& after) {
    std::vector<std::u16string> visibleBefore, visibleAfter;
    for (int i = 0; i < before.Count(); ++i) {
        if (IsVisible(before[i])) visibleBefore.emplace_back(before[i].Name.View());
    }
    int firstArt = -1;
    int number = 0;
    for (int i = 0; i < after.Count(); ++i) {
        if (IsArtKey(after[i].Name)) {
            if (firstArt < 0) firstArt = i;
            std::u16string prefix = clString(u"_albumart_").Std() + clString::FromInt(++number).Std() + u"_";
            Require(after[i].Name.View().substr(0, prefix.size()) == prefix);
            continue;
        }
        Require(firstArt < 0);   // pictures stand behind everything else
        if (IsVisible(after[i])) visibleAfter.emplace_back(after[i].Name.View());
    }
    Require(visibleAfter == visibleBefore);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<std::string> lines = Lines(std::string_view(reinterpret_cast<const char*>(data), size));
    if (lines.size() < 2) return 0;
    const clString typeName = clString::FromUtf8(lines[0]);
    const clString description = clString::FromUtf8(lines[1]);
    IDTags tags;
    for (size_t i = 2; i < lines.size(); ++i) tags.AddBinary(clString::FromUtf8(lines[i]), "x", 1);

    clString type, desc;
    tags.FindFirstArt(type, desc);
    for (int i = 0; i < tags.Count(); ++i) SplitArtKey(tags[i].Name, type, desc);

    IDTags before = tags;
    if (tags.RemoveArt(typeName, description)) {
        CheckRemoval(before, tags);
    } else {
        Require(Names(tags) == Names(before));
    }
    tags.RemoveHidden();
    for (int i = 0; i < tags.Count(); ++i) {
        std::u16string_view name = tags[i].Name.View();
        Require(!IsArtKey(tags[i].Name));
        Require(IsVisible(tags[i]) || StartsWithNoCase(name, u"_riff_") || EqualsNoCase(name, u"_cdtoc") ||
                EqualsNoCase(name, u"_crc"));
    }
    return 0;
}
