// A changed title written into an arbitrary file (a scratch copy), then read
// back: whatever the bytes, the write ends; a write that fails leaves the
// file byte for byte as it was; a write that succeeds keeps every Cluster at
// its offset with its bytes; and when the file could be read before, it reads
// back with the new title among its titles and every picture it had.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "codecs/decoders/ffmpeg/qel-matroska/matroskatags.h"
#include "fuzz/scratchfile.h"
#include "tests/qel-matroska/ebmlwalk.h"

namespace {

// The pictures' bytes. A write may bring an element no Seek entry named
// into view, so the pictures after it are compared as a superset.
std::multiset<std::string> Pictures(const IDTags& tags) {
    std::multiset<std::string> pictures;
    for (int i = 0; i < tags.Count(); ++i)
        pictures.insert(std::string(reinterpret_cast<const char*>(tags[i].Data.Data()), tags[i].Data.Size()));
    return pictures;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScratchFile scratch(".mka");
    scratch.Fill(data, size);
    const std::string before(reinterpret_cast<const char*>(data), size);
    const clString path = clString::FromUtf8(scratch.Path());
    // The title's length follows the input, so that it both fits and doesn't.
    const clString title = clString::FromUtf8(std::string(size % 300, 't') + "!");
    IDTags old;
    const bool readable = MatroskaTags::Read(path, old, nullptr);
    IDTags tags;
    tags.Add(clString(u"TITLE"), title);
    if (!MatroskaTags::Write(path, tags, nullptr)) {
        Require(scratch.Bytes() == before);
        return 0;
    }
    const std::string after = scratch.Bytes();
    for (const auto& [offset, cluster] : ebmltest::Clusters(before)) Require(after.compare(offset, cluster.size(), cluster) == 0);
    // A write that leaves the Attachments alone doesn't mend them.
    if (!readable) return 0;
    IDTags read;
    Require(MatroskaTags::Read(path, read, nullptr));
    // A TITLE the file holds at another level stays beside the new one.
    const IDTag* found = read.Find(clString(u"TITLE"), false);
    Require(found != nullptr && ("\r" + found->Value.ToUtf8() + "\r").find("\r" + title.ToUtf8() + "\r") != std::string::npos);
    const std::multiset<std::string> was = Pictures(old), now = Pictures(read);
    Require(std::includes(now.begin(), now.end(), was.begin(), was.end()));
    return 0;
}
