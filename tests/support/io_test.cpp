// clFile on real files in a private temporary folder (ShiftTail checked byte
// for byte against a model of the move), and clLog: the bytes that reach its
// two sinks, the indentation, and whole lines when threads log at once.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/clFile.h"
#include "support/clLog.h"
#include "tests/integration/testkit.h"
#include "io_system.h"

namespace {

std::string RandomBytes(size_t count, unsigned seed) {
    std::mt19937 engine(seed);
    std::string out(count, '\0');
    for (char& b : out) b = static_cast<char>(engine());
    return out;
}

clString Path(const std::string& utf8) { return clString::FromUtf8(utf8); }
std::u16string S(const clString& s) { return std::u16string(s.View()); }

class ClFileTest : public testing::Test {
protected:
    // `name` is UTF-8. The runtime's file streams take ANSI names on Windows,
    // so the file is written under a plain name and then renamed.
    std::string Make(const std::string& content, const std::string& name = "f.bin") {
        it::WriteFile(dir_.File("made.tmp"), content);
        const std::string path = dir_.File(name);
        std::filesystem::rename(std::filesystem::u8path(dir_.File("made.tmp")), std::filesystem::u8path(path));
        return path;
    }
    it::TempDir dir_;
};

// A log file as the host opens it, for appending; read back as strict
// UTF-16LE, so that a byte order mark or another byte order shows.
struct Sink {
    it::TempDir dir;
    it::SinkFile file{dir.File("log")};
    std::u16string Text() const {
        const std::string bytes = it::ReadFile(dir.File("log"));
        EXPECT_EQ(bytes.size() % 2, 0u);
        std::u16string out(bytes.size() / 2, u'\0');
        for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<char16_t>(uint8_t(bytes[2 * i]) | uint8_t(bytes[2 * i + 1]) << 8);
        return out;
    }
};

class ClLogTest : public testing::Test {
protected:
    void SetUp() override { clLog::ResetForTesting(); }
    void TearDown() override { clLog::ResetForTesting(); }
    Sink errors_, trace_;
    clLogTarget target_{errors_.file.Get(), 0, trace_.file.Get()};
};

}  // namespace

TEST_F(ClFileTest, ShiftTailMatchesTheModelInBothDirections) {
    const struct { size_t size; int64_t position, delta; } cases[] = {
        {20, 10, 5},       {20, 10, -5},       {20, 20, 7},           {20, 20, -7},           {20, 0, 3},
        {20, 25, 65540},   {20, 10, 0},        {200000, 1000, 5},     {200000, 1000, -5},     {200000, 3, 100000},
        {200000, 100, -100}, {131072, 0, 65535}, {200000, 70000, 65536}, {200000, 70000, -65537},
    };
    unsigned seed = 1;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.size << " " << c.position << " " << c.delta);
        const std::string old = RandomBytes(c.size, seed++), path = Make(old);
        clFile file(Path(path));
        ASSERT_TRUE(file.Open(clFile::kReadWrite));
        EXPECT_TRUE(file.ShiftTail(c.position, c.delta));
        file.Close();
        // The model: the tail at its new place, the bytes left behind
        // unchanged, a hole in a grown file read as zeros.
        const auto size = static_cast<int64_t>(c.size);
        std::string expected = old;
        expected.resize(static_cast<size_t>(std::max(size, size + c.delta)), 0);
        if (c.position < size) std::copy(old.begin() + c.position, old.end(), expected.begin() + c.position + c.delta);
        expected.resize(static_cast<size_t>(size + c.delta));
        EXPECT_TRUE(it::ReadFile(path) == expected);
    }
    // A read-only handle can't move anything and says so.
    clFile readOnly(Path(Make(RandomBytes(100, 9))));
    ASSERT_TRUE(readOnly.Open(clFile::kRead));
    EXPECT_FALSE(readOnly.ShiftTail(10, 5) || clFile().ShiftTail(0, 1));
}

TEST_F(ClFileTest, OpenFailuresHandlesAndDescriptors) {
    const int before = it::CurrentResources().descriptors;
    {
        const clString missing = Path(dir_.File("missing \xC3\xA9.bin"));
        const std::u16string code = FileNotFoundErrorCode();
        EXPECT_EQ(S(clFile::OpenErrorText(missing)),
                  u"Error opening file '" + S(missing) + u"', check no other program has it open. " + code);
        EXPECT_FALSE(clFile(missing).Open(clFile::kRead));
        EXPECT_FALSE(clFile(Path(dir_.Path())).Open(clFile::kRead));   // a folder is no file

        const std::string path = Make("\x01\x02\x03", "\xC3\xA9t\xC3\xA9.bin");   // UTF-8 name
        clFile owner(Path(path)), writeOnly(Path(path)), closed;
        ASSERT_TRUE(owner.Open(clFile::kRead) && writeOnly.Open(clFile::kWrite));
        EXPECT_FALSE(Inheritable(owner.handle)) << "a worker must not inherit the file";
        // A read tells a failure (a write-only or closed file) from the end of the file.
        uint8_t bytes[20] = {};
        const struct { clFile* file; size_t got; bool failed; } reads[] = {
            {&owner, 3, false}, {&owner, 0, false}, {&writeOnly, 0, true}, {&closed, 0, true}};
        for (const auto& r : reads) {
            bool failed = false;
            EXPECT_EQ(r.file->Read(bytes, 20, &failed), r.got);
            EXPECT_EQ(failed, r.failed);
        }
        EXPECT_EQ(bytes[1], 2);
        EXPECT_FALSE(owner.Write(bytes, 1));
        clFile moved(std::move(owner)), other(Path(path));
        ASSERT_TRUE(other.Open(clFile::kRead));
        moved = std::move(other);   // closes the handle it held
        EXPECT_TRUE(moved.Open(clFile::kRead));   // reopening closes first
    }
    EXPECT_EQ(it::CurrentResources().descriptors, before);
}

// (Missing and closed sinks: the plug-in's border test.)
TEST_F(ClLogTest, LineFormAndIndentation) {
    // "<-<-" with nothing to close stays at the margin; a line ends with its
    // label; the label is ANSI text.
    const struct { const char16_t* text; const char* label; bool end = true; } traces[] = {
        {u"<-<-", "f"}, {u"->->", "f"}, {u"inner", "f"}, {u"->->", "f"}, {u"a", nullptr, false}, {u"b", nullptr, false},
        {u"c", "f", false}, {u"d", "f"}, {nullptr, nullptr}, {u"text ->-> inside", "f"}, {u"<-<-", "f"}, {u"<-<-", "f"},
        {u"after", nullptr}, {u"label \xE9", "\xE9t\xE9"}};
    for (const auto& t : traces) {
        if (t.text) clLog::Trace(t.text, &target_, t.label, t.end);
        else clLog::Error(u"Attempting to open null file path.", &target_, "clDecoder_ffmpeg::Open");
    }
    EXPECT_EQ(trace_.Text(), u"<-<-  [f]\r\n->->  [f]\r\n  inner  [f]\r\n  ->->  [f]\r\n    abcd  [f]\r\n"
                             u"*** Error: Attempting to open null file path.  [clDecoder_ffmpeg::Open]\r\n"
                             u"    text ->-> inside  [f]\r\n  <-<-  [f]\r\n<-<-  [f]\r\nafter\r\nlabel \u00E9  [\u00E9t\u00E9]\r\n");
    EXPECT_EQ(errors_.Text(), u"Attempting to open null file path.  [clDecoder_ffmpeg::Open]\r\n");
    EXPECT_TRUE(clLog::CurrentIndent().Empty());
}

TEST_F(ClLogTest, ConcurrentLinesStayWhole) {
    constexpr int kThreads = 8, kLines = 300;
    std::map<std::u16string, int> expected, counts;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        const std::u16string message(static_cast<size_t>(40 + t), static_cast<char16_t>(u'a' + t));
        expected[message + u"  [worker]"] = kLines;
        threads.emplace_back([this, message] {
            for (int i = 0; i < kLines; ++i) clLog::Trace(message.c_str(), &target_, "worker");
        });
    }
    for (auto& thread : threads) thread.join();
    const std::u16string text = trace_.Text();
    size_t start = 0;
    for (size_t end; (end = text.find(u"\r\n", start)) != std::u16string::npos; start = end + 2) ++counts[text.substr(start, end - start)];
    EXPECT_EQ(start, text.size()) << "an unfinished last line";
    EXPECT_EQ(counts, expected) << "torn or lost lines";
}
