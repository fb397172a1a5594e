// clLog: the bytes that reach the two sinks, the indentation, and whole
// lines when several threads log at once.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "support/clLog.h"

namespace {

// A log file as the host opens it: an anonymous temporary file.
class Sink {
public:
    Sink() {
        char pattern[] = "/tmp/cllog-XXXXXX";
        fd_ = mkstemp(pattern);
        unlink(pattern);
    }
    ~Sink() { close(fd_); }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    uint64_t Word() const { return static_cast<uint64_t>(fd_); }
    std::string Bytes() const {
        std::string out(static_cast<size_t>(lseek(fd_, 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(fd_, out.data(), out.size(), 0), static_cast<ssize_t>(out.size()));
        return out;
    }
    std::u16string Text() const {
        const std::string bytes = Bytes();
        EXPECT_EQ(bytes.size() % 2, 0u);
        std::u16string out;
        for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
            out.push_back(static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) |
                                                (static_cast<uint8_t>(bytes[i + 1]) << 8)));
        }
        return out;
    }

private:
    int fd_ = -1;
};

class ClLogTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(errors_.Word(), UINT64_MAX);
        ASSERT_NE(trace_.Word(), UINT64_MAX);
        clLog::ResetForTesting();
        target_.errorLog = errors_.Word();
        target_.traceLog = trace_.Word();
    }
    void TearDown() override { clLog::ResetForTesting(); }

    Sink errors_;
    Sink trace_;
    clLogTarget target_;
};

}  // namespace

TEST_F(ClLogTest, ErrorLineFormInBothLogs) {
    clLog::Error(u"Attempting to open null file path.", &target_, "clDecoder_ffmpeg::Open");
    const std::u16string line = u"Attempting to open null file path.  [clDecoder_ffmpeg::Open]\r\n";
    EXPECT_EQ(errors_.Text(), line);
    EXPECT_EQ(trace_.Text(), u"*** Error: " + line);
    // UTF-16LE without a byte order mark.
    EXPECT_EQ(errors_.Bytes().substr(0, 4), std::string("A\0t\0", 4));
    EXPECT_EQ(errors_.Bytes().substr(errors_.Bytes().size() - 4), std::string("\r\0\n\0", 4));
}

TEST_F(ClLogTest, IndentationFollowsTheMarksAtTheMessageStart) {
    const char* f = "f";
    clLog::Trace(u"<-<-", &target_, f);   // nothing to close: stays at the margin
    clLog::Trace(u"->->", &target_, f);
    clLog::Trace(u"inner", &target_, f);
    clLog::Trace(u"->->", &target_, f);
    clLog::Trace(u"a", &target_, nullptr, false);
    clLog::Trace(u"b", &target_, nullptr, false);
    clLog::Trace(u"c", &target_, f, false);
    clLog::Trace(u"d", &target_, f, true);
    clLog::Error(u"bad", &target_, f);
    clLog::Trace(u"text ->-> inside", &target_, f);
    clLog::Trace(u"<-<-", &target_, f);
    clLog::Trace(u"<-<-", &target_, f);
    clLog::Trace(u"after", &target_, nullptr);
    clLog::Trace(u"label \xE9", &target_, "\xE9t\xE9");   // the label is ANSI text
    EXPECT_EQ(trace_.Text(),
              u"<-<-  [f]\r\n"
              u"->->  [f]\r\n"
              u"  inner  [f]\r\n"
              u"  ->->  [f]\r\n"
              u"    abcd  [f]\r\n"
              u"*** Error: bad  [f]\r\n"
              u"    text ->-> inside  [f]\r\n"
              u"  <-<-  [f]\r\n"
              u"<-<-  [f]\r\n"
              u"after\r\n"
              u"label \u00E9  [\u00E9t\u00E9]\r\n");
    EXPECT_EQ(errors_.Text(), u"bad  [f]\r\n");
    EXPECT_TRUE(clLog::CurrentIndent().Empty());
}

TEST_F(ClLogTest, NoSinksWriteNothingButTheIndentMoves) {
    clLogTarget none;
    clLogTarget allOnes{UINT64_MAX, 0, UINT64_MAX};
    clLog::Trace(u"->->", &none, "f");
    clLog::Trace(u"->->", &allOnes, "f");
    clLog::Trace(u"->->", nullptr, "f");
    EXPECT_EQ(std::u16string(clLog::CurrentIndent().View()), u"      ");
    clLog::Error(u"dropped", &none, "f");
    clLog::Trace(u"<-<-", &allOnes, "f");
    EXPECT_EQ(std::u16string(clLog::CurrentIndent().View()), u"    ");
    EXPECT_TRUE(trace_.Bytes().empty());
}

TEST_F(ClLogTest, ConcurrentLinesStayWhole) {
    constexpr int kThreads = 8;
    constexpr int kLines = 300;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            const std::u16string message(static_cast<size_t>(40 + t), static_cast<char16_t>(u'a' + t));
            for (int i = 0; i < kLines; ++i) clLog::Trace(message.c_str(), &target_, "worker");
        });
    }
    for (auto& thread : threads) thread.join();

    const std::u16string text = trace_.Text();
    std::vector<int> counts(kThreads, 0);
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find(u"\r\n", start);
        ASSERT_NE(end, std::u16string::npos);
        const std::u16string line = text.substr(start, end - start);
        const int t = line.empty() ? -1 : line[0] - u'a';
        ASSERT_TRUE(t >= 0 && t < kThreads) << "torn line";
        ASSERT_EQ(line, std::u16string(static_cast<size_t>(40 + t), line[0]) + u"  [worker]");
        ++counts[static_cast<size_t>(t)];
        start = end + 2;
    }
    EXPECT_EQ(counts, std::vector<int>(kThreads, kLines));
}
