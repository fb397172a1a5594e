// The APE reader, writer and delete over arbitrary file bytes. Whatever the
// bytes, the reader claims no byte outside the file; a write or a delete
// either refuses and leaves the file as it was, or changes no byte in front of
// where the reader said the tag begins; and what was written reads back.

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

// The tag's first byte as the reader sees it.
int64_t TagStartOf(clFile& file, size_t size) {
    TagAPEv2 ape(file);
    IDTags tags;
    ape.Exists();
    ape.Read(tags, true);
    Require(ape.TagStart >= 0 && ape.TagStart <= static_cast<int64_t>(size));
    return ape.TagStart;
}

bool SamePrefix(const std::string& output, const std::string& input, int64_t length) {
    return output.compare(0, static_cast<size_t>(length), input, 0, static_cast<size_t>(length)) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScratchFile scratch(".tak");
    scratch.Fill(data, size);
    const std::string input(reinterpret_cast<const char*>(data), size);

    clFile file(clString::FromUtf8(scratch.Path()));
    Require(file.Open(clFile::kReadWrite));
    const int64_t tagStart = TagStartOf(file, size);
    bool wrote = false;
    {
        TagAPEv2 ape(file);
        IDTags title;
        title.Add(clString(u"Title"), clString(u"fuzz"));
        wrote = ape.Write(title, true);
        Require(wrote != (ape.Failure != nullptr));
    }
    std::string output = scratch.Bytes();
    Require(wrote ? SamePrefix(output, input, tagStart) : output == input);
    // A file shorter than an ID3v1 tag and the 3 bytes in front of it has no tag to read.
    if (wrote && output.size() >= 131) {
        TagAPEv2 ape(file);
        IDTags tags;
        Require(ape.Read(tags, false));
        Require(HasTitle(tags, u"fuzz"));
    }

    scratch.Fill(data, size);
    {
        TagAPEv2 ape(file);
        ape.Delete();
        output = scratch.Bytes();
        Require(ape.Failure ? output == input : SamePrefix(output, input, tagStart) && output.size() <= size);
    }
    return 0;
}
