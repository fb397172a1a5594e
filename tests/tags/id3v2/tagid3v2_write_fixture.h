#pragma once
// The ID3v2 write tests' fixture: a tag in front of stand-in audio that is
// larger than the 64 KiB step of a tail move, and checks that the audio
// behind the tag is the same bytes after every change.

#include <gtest/gtest.h>

#include "id3builder.h"
#include "tags/id3v2/tagid3v2.h"
#include "tags/stdtags.h"
#include "tests/tags/tagfixture.h"

namespace id3writetest {

using namespace id3test;
using namespace tagtest;

// Larger than the 64 KiB step of a tail move, and not a multiple of it.
inline const std::string kAudio = AudioBytes(200 * 1024 + 77);

class TagID3v2WriteTest : public ::testing::Test {
protected:
    void Make(const std::string& tag, const std::string& tail = "") { WriteFile(path, tag + kAudio + tail); }
    // The tag in front, checked to be followed by exactly the audio (and `tail`).
    std::string TagBytes(const std::string& tail = "") {
        const std::string bytes = ReadFile(path);
        const size_t size = TagSize(bytes);
        EXPECT_EQ(bytes.substr(size), kAudio + tail) << "the audio moved or changed";
        return bytes.substr(0, size);
    }
    bool Write(const IDTags& tags, std::initializer_list<const char16_t*> options = {}) {
        return RunEngine<TagID3v2>(path, [&](TagID3v2& engine) {
            for (const char16_t* option : options) engine.SetOption(clString(option));
            return engine.Write(tags, false);
        });
    }
    void Delete() {
        RunEngine<TagID3v2>(path, [](TagID3v2& engine) { engine.Delete(); });
    }
    std::string Read() { return ReadWith<TagID3v2>(path); }

    TempDir dir;
    LogCapture log{dir};
    std::string path = dir.File("song.tak");
};

inline const std::string kPriv = Frame23("PRIV", std::string("owner\0data", 10));
inline const std::string kOld23 = Tag(3, Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) + kPriv);

}  // namespace id3writetest
