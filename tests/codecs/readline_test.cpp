// ReadLine: the error stream cut into lines.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/stderrqueue.h"
#include "transport/exceptions.h"

namespace {

std::vector<std::string> ReadAllLines(const std::string& text) {
    Qel::streamInMemory stream(text.data(), text.size());
    std::vector<std::string> lines;
    try {
        for (;;) lines.push_back(ReadLine(stream));
    } catch (const Qel::invalid_input&) {
    }
    return lines;
}

}  // namespace

TEST(ReadLine, LineFeedEndsCarriageReturnMelts) {
    EXPECT_EQ(ReadAllLines("ab\r\n\ncd\n"), (std::vector<std::string>{"ab", "", "cd"}));
    EXPECT_EQ(ReadAllLines("size= 1\rsize= 2\r\n"), (std::vector<std::string>{"size= 1size= 2"}));
    // A last line without its line feed is lost.
    EXPECT_EQ(ReadAllLines("one\ntwo"), (std::vector<std::string>{"one"}));
    EXPECT_EQ(ReadAllLines(std::string("a\0b\n", 4)), (std::vector<std::string>{std::string("a\0b", 3)}));

    Qel::streamInMemory empty(nullptr, 0);
    EXPECT_THROW(ReadLine(empty), Qel::invalid_input);
}

TEST(ReadLine, LongestLineAndOneByteMore) {
    const size_t limit = 0x1000000;
    std::string text(limit, 'x');
    text += "\n";
    Qel::streamInMemory atLimit(text.data(), text.size());
    EXPECT_EQ(ReadLine(atLimit).size(), limit);

    text.insert(0, "y");
    Qel::streamInMemory over(text.data(), text.size());
    EXPECT_THROW(ReadLine(over), Qel::invalid_input);

    // Carriage returns don't count toward the limit.
    std::string withReturns(limit, 'x');
    withReturns += "\r\r\n";
    Qel::streamInMemory returns(withReturns.data(), withReturns.size());
    EXPECT_EQ(ReadLine(returns).size(), limit);
}
