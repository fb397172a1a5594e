// The APE reader and writer over arbitrary file bytes. Whatever the bytes, the
// reader claims no byte outside the file, a write never changes a byte in
// front of where the reader said the tag begins, and what was written reads back.

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/scratchfile.h"
#include "support/clFile.h"
#include "tags/tagapev2.h"
#include "tags/tagtext.h"

namespace {

bool HasTitle(const IDTags& tags, std::u16string_view value) {
    for (int i = 0; i < tags.Count(); ++i) {
        if (EqualsNoCase(tags[i].Name.View(), u"Title") && tags[i].Value.View() == value) return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScratchFile scratch(".tak");
    scratch.Fill(data, size);
    const std::string input(reinterpret_cast<const char*>(data), size);

    clFile file(clString::FromUtf8(scratch.Path()));
    Require(file.Open(clFile::kReadWrite));
    int64_t tagStart = 0;
    {
        TagAPEv2 ape(file);
        IDTags tags;
        ape.Exists();
        ape.Read(tags, true);
        tagStart = ape.TagStart;
        Require(tagStart >= 0 && tagStart <= static_cast<int64_t>(size));
    }
    {
        TagAPEv2 ape(file);
        IDTags title;
        title.Add(clString(u"Title"), clString(u"fuzz"));
        Require(ape.Write(title, true));
    }
    const std::string output = scratch.Bytes();
    Require(output.compare(0, static_cast<size_t>(tagStart), input, 0, static_cast<size_t>(tagStart)) == 0);
    // A file shorter than an ID3v1 tag and the 3 bytes in front of it has no tag to read.
    if (output.size() >= 131) {
        TagAPEv2 ape(file);
        IDTags tags;
        Require(ape.Read(tags, false));
        Require(HasTitle(tags, u"fuzz"));
    }
    return 0;
}
