// The forgiving parse of the tag blob on arbitrary bytes. Whatever it keeps
// must survive a trip through the flat form unchanged.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "tags/idtags.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

bool SameBytes(const clBuffer& a, const clBuffer& b) {
    return a.Size() == b.Size() && (a.Size() == 0 || std::memcmp(a.Data(), b.Data(), a.Size()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    IDTags tags;
    tags.Parse(data, static_cast<int64_t>(size));

    clBuffer blob;
    tags.Serialise(blob);
    IDTags again;
    again.Parse(blob.Data(), blob.Size());
    Require(again.Count() == tags.Count());
    for (int i = 0; i < tags.Count(); ++i) {
        Require(again[i].Name == tags[i].Name);
        Require(again[i].Value == tags[i].Value);
        Require(SameBytes(again[i].Data, tags[i].Data));
    }
    clBuffer second;
    again.Serialise(second);
    Require(SameBytes(blob, second));

    // The name operations on what came out.
    if (tags.Count() > 0) {
        const clString name = tags[0].Name;
        Require(tags.Find(name, true) != nullptr);
        Require(tags.Remove(name));
        Require(tags.Find(name, false) == nullptr);
    }
    tags.TakeVersion();
    return 0;
}
