#pragma once
// What the tag tests share: a file of stand-in audio with tags around it,
// engines run over it, short text forms of a collection and of parsed ID3v2
// values, and a capture of the error log.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/clFile.h"
#include "support/clLog.h"
#include "tagbytes.h"
#include "tags/id3v2/id3parser.h"
#include "tags/id3v2/id3values.h"
#include "tags/idtags.h"
#include "tests/integration/testkit.h"

namespace tagtest {

using namespace std::string_literals;
using it::ReadFile;
using it::TempDir;
using it::WriteFile;

inline clString S(const std::string& utf8) { return clString::FromUtf8(utf8); }
inline std::string Utf8(const clString& text) { return text.ToUtf8(); }
inline std::string DataOf(const IDTag& tag) { return std::string(reinterpret_cast<const char*>(tag.Data.Data()), tag.Data.Size()); }

// "Name=Value;" per entry, CR shown as "|", data as "[n bytes]".
inline std::string Describe(const IDTags& tags) {
    std::string out;
    for (int i = 0; i < tags.Count(); ++i) {
        std::string value = Utf8(tags[i].Value);
        std::replace(value.begin(), value.end(), '\r', '|');
        out += Utf8(tags[i].Name) + "=" + value + (tags[i].Data.Empty() ? "" : "[" + std::to_string(tags[i].Data.Size()) + " bytes]") + ";";
    }
    return out;
}

inline IDTags Tags(std::initializer_list<std::pair<const char*, std::string>> entries) {
    IDTags tags;
    for (const auto& [name, value] : entries) tags.Add(S(name), S(value));
    return tags;
}

// A frame as the parser leaves it; `version` that of the tag it was read from, 0 for a new one.
inline id3parser::id3frame FrameOf(const char (&id)[5], const std::string& body, uint32_t version = 0) {
    id3parser::id3frame frame;
    frame.id = id3parser::frameId(id);
    frame.data.assign(body.begin(), body.end());
    frame.version = version;
    return frame;
}

// A tag of `version` holding `frames`, as the parser leaves it.
inline id3parser::id3tag TagOf(uint32_t version, const std::vector<id3parser::id3frame>& frames) {
    id3parser::id3tag tag;
    tag.version = version;
    tag.frames.assign(frames.begin(), frames.end());
    return tag;
}

inline id3parser::id3tag Parse(const std::string& bytes) {
    id3parser::streamInMem stream(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    id3parser::parseCallback callback;
    id3parser::id3tag tag;
    id3parser::parseTag(tag, stream, callback);
    return tag;
}

// A parsed tag's values: "Name=a|b;" per name, in map order.
inline std::string ValuesOf(const id3parser::id3tag& tag) {
    id3parser::TagValues values;
    id3parser::framesToValues(tag, values);
    std::string out;
    for (const auto& [name, list] : values) {
        out += name;
        for (size_t i = 0; i < list.size(); ++i) out += (i ? "|" : "=") + list[i];
        out += ";";
    }
    return out;
}

// Runs `op` on an engine of type E over the file at `path`, and gives its result.
template <class E, class Op>
auto RunEngine(const std::string& path, Op op, uint32_t access = clFile::kReadWrite) {
    clFile file(S(path));
    if (!file.Open(access)) throw std::runtime_error("cannot open " + path);
    E engine(file);
    return op(engine);
}

// What an engine of type E reads from `path`, as Describe shows it.
template <class E>
std::string ReadWith(const std::string& path, bool wantVersion = true) {
    return RunEngine<E>(path, [&](E& engine) {
        IDTags tags;
        EXPECT_TRUE(engine.Read(tags, wantVersion));
        return Describe(tags);
    }, clFile::kRead);
}

// A decoder's error log, written to a file that the test reads back as ASCII.
class LogCapture {
public:
    explicit LogCapture(const TempDir& dir) : path_(dir.File("error.log")), sink_(path_) { target_.errorLog = sink_.Get(); }
    const clLogTarget* Target() const { return &target_; }
    std::string Text() const {
        std::string text = ReadFile(path_);
        return std::erase(text, '\0'), text;
    }

private:
    std::string path_;
    it::SinkFile sink_;
    clLogTarget target_;
};

// An ID3v2.3 tag of two text frames and a frame no collection shows.
inline const std::string kPriv = Frame23("PRIV", std::string("owner\0data", 10));
inline const std::string kOldFrames = Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")) + kPriv, kOld23 = Tag(3, kOldFrames);

inline constexpr char kRefused[] = "refused";   // for the tail: the file stays byte for byte as it was

// One run of a standard flow: the tags around the audio afterwards, and what the log says.
struct FlowRow {
    using Flow = std::function<bool(const std::string& path, const clLogTarget* log)>;
    std::string what, front, tail;
    Flow flow;
    std::string frontAfter, tailAfter;   // tailAfter kRefused: the flow fails and changes nothing
    std::vector<std::string> logged = {};   // pieces of the log; none: nothing is logged
};

// A file of stand-in audio, larger than the 64 KiB step of a tail move and
// not a multiple of it, with tags in front and behind. Tail() and Front()
// give the tags and check that the audio is the same bytes.
class TagFileTest : public ::testing::Test {
public:
    static constexpr size_t kAudio = 200 * 1024 + 77;

protected:
    void Make(const std::string& front, const std::string& tail = "", size_t audio = kAudio) { WriteFile(path, front + AudioBytes(audio) + tail); }
    std::string Tail() const {
        const std::string bytes = ReadFile(path);
        EXPECT_EQ(bytes.substr(0, kAudio), audio) << "the audio changed";
        return bytes.size() < kAudio ? "(audio cut)" : bytes.substr(kAudio);
    }
    // The ID3v2 tag in front, checked to be followed by exactly the audio and `tail`.
    std::string Front(const std::string& tail = "") const {
        const std::string bytes = ReadFile(path);
        const size_t size = TagSize(bytes);
        EXPECT_EQ(bytes.substr(size), audio + tail) << "the audio moved or changed";
        return bytes.substr(0, size);
    }
    // Runs one flow over front + audio + tail and checks the whole file and the log.
    void Check(const FlowRow& row) {
        SCOPED_TRACE(row.what);
        Make(row.front, row.tail);
        const std::string before = ReadFile(path);
        const size_t logBefore = log.Text().size();
        const bool refused = row.tailAfter == kRefused;
        EXPECT_EQ(row.flow(path, log.Target()), !refused);
        EXPECT_EQ(refused ? ReadFile(path) : Front(row.tailAfter), refused ? before : row.frontAfter);
        const std::string logged = log.Text().substr(logBefore);
        EXPECT_TRUE(!row.logged.empty() || logged.empty()) << logged;
        for (const std::string& piece : row.logged) EXPECT_NE(logged.find(piece), std::string::npos) << logged;
    }
    const std::string audio = AudioBytes(kAudio);
    TempDir dir;
    LogCapture log{dir};
    std::string path = dir.File("song.tta");
};

}  // namespace tagtest
