// Arbitrary bytes read as an ID3v2 tag, written back with a changed title and
// read again. A write that succeeds leaves every byte behind the old tag as it
// was and reads back the title; a write that fails leaves the file untouched.

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/scratchfile.h"
#include "support/clFile.h"
#include "tags/id3v2/tagid3v2.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScratchFile scratch(".tak");
    scratch.Fill(data, size);
    const std::string input(reinterpret_cast<const char*>(data), size);

    clFile file(clString::FromUtf8(scratch.Path()));
    Require(file.Open(clFile::kReadWrite));
    uint64_t oldSize = 0;
    {
        TagID3v2 tag(file);
        IDTags tags;
        Require(tag.Read(tags, true));
        oldSize = tag.tagSizeOnDisk();
    }
    bool written = false;
    {
        TagID3v2 tag(file);
        IDTags title;
        title.Add(clString(u"Title"), clString(u"fuzz"));
        written = tag.Write(title, false);
    }
    const std::string output = scratch.Bytes();
    if (!written) {
        Require(output == input);
        return 0;
    }
    TagID3v2 tag(file);
    const uint64_t newSize = tag.tagSizeOnDisk();
    Require(newSize != 0 && oldSize <= size);
    Require(output.compare(newSize, std::string::npos, input, oldSize, std::string::npos) == 0);
    IDTags tags;
    Require(tag.Read(tags, false));
    const IDTag* found = tags.Find(clString(u"Title"), false);
    Require(found != nullptr && found->Value == clString(u"fuzz"));
    return 0;
}
