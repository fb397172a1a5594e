// A write that finds no room in the file (a POSIX file size limit) fails
// before any byte moves and leaves the old tags; without the limit it goes through.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "id3v2/tagid3v2_write_fixture.h"

using namespace id3writetest;

namespace {

// True when the write, run in a child under the limit (root may grow any file), reported failure.
bool RefusedUnderLimit(const std::string& path, const IDTags& tags, rlim_t limit, const clLogTarget* log) {
    const pid_t child = ::fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);   // growing past the limit fails with EFBIG instead
        const rlimit r{limit, limit};
        if (::setrlimit(RLIMIT_FSIZE, &r) != 0) ::_exit(3);
        ::_exit(WriteStdTags(S(path), tags, 1, log) ? 1 : 0);
    }
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

TEST_F(TagID3v2WriteTest, AFileSizeLimitLeavesTheOldTags) {
    const std::string oldApe = ApeTag({{"Title", "t"}, {"Album", "a"}}).Bytes(), comment(4096, 'c');
    IDTags withCover = Tags({{"Title", "New"}});
    const std::string big(300 * 1024, 'c');
    withCover.AddBinary(S("_albumart_1_Front Album Cover"), big.data(), static_cast<uint32_t>(big.size()));
    const struct {
        std::string tag, tail;
        IDTags tags;
        rlim_t room;
        const char* logged;
        std::string tailAfter, readBack;   // without the limit
    } cases[] = {
        {"", oldApe, Tags({{"Comment", comment}}), 100,
         "Could not write APE tag  [WriteStdTags]\r\nThe file could not be changed.",
         ApeTag({{"Title", "t"}, {"Album", "a"}, {"Comment", comment}}).Bytes(), ""},
        {kOld23, "", withCover, 100 * 1024,
         "Could not write ID3v2 tag  [WriteStdTags]\r\nThere is no room for the larger ID3v2 tag", "",
         "TagVersion=ID3v2.3;Album=Album;Title=New;_albumart_1_Front Album Cover=[307200 bytes];"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.logged);
        Make(c.tag, c.tail);
        const std::string before = ReadFile(path);
        EXPECT_TRUE(RefusedUnderLimit(path, c.tags, before.size() + c.room, log.Target()));
        EXPECT_EQ(ReadFile(path), before);
        EXPECT_NE(log.Text().find(c.logged), std::string::npos) << log.Text();
        ASSERT_TRUE(WriteStdTags(S(path), c.tags, 1, log.Target()));
        TagBytes(c.tailAfter);
        EXPECT_EQ(Read(), c.readBack);
    }
}
