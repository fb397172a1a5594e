// The ID3v1 engine and the reading flow over arbitrary file bytes: a write
// changes at most the last 128 bytes, and the flow never fails on a file that
// the engines could read.

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/scratchfile.h"
#include "support/clFile.h"
#include "tags/stdtags.h"
#include "tags/tagid3v1.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScratchFile scratch(".tta");
    scratch.Fill(data, size);
    const std::string input(reinterpret_cast<const char*>(data), size);
    const clString path = clString::FromUtf8(scratch.Path());

    IDTags all;
    clString version;
    ReadStdTags(path, all, version, nullptr);

    clFile file(path);
    Require(file.Open(clFile::kReadWrite));
    size_t kept = size;
    {
        TagID3v1 id3v1(file);
        IDTags tags;
        bool read = id3v1.Read(tags, true);
        Require(read == (size >= 131));
        if (id3v1.Exists()) kept = size - 128;
        IDTags update;
        update.Add(clString(u"Title"), clString(u"fuzz"));
        update.Add(clString(u"Artist"), clString(u"a\rb"));
        update.Add(clString(u"Track"), clString(u"300"));
        update.Add(clString(u"Genre"), clString(u"Rock"));
        Require(id3v1.Write(update, true));
    }
    const std::string output = scratch.Bytes();
    Require(output.size() >= kept && output.compare(0, kept, input, 0, kept) == 0);
    // "APE" in front of the tag would make it the magic of an APE tag.
    if (output.size() >= 131 && output.compare(output.size() - 131, 3, "APE") != 0) {
        TagID3v1 id3v1(file);
        IDTags tags;
        Require(id3v1.Read(tags, false));
        IDTag* title = tags.Find(clString(u"Title"), false);
        Require(title && title->Value.View() == u"fuzz");
    }
    return 0;
}
