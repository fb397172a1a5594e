// A write that runs into the file size limit (POSIX rlimit) stops before any
// byte moves: the file is the old one, and the write goes through without it.

#include <signal.h>
#include <sys/resource.h>

#include "tagid3v2_write_fixture.h"

using namespace id3writetest;

TEST_F(TagID3v2WriteTest, AFileSizeLimitStopsTheWriteBeforeAnyByteMoves) {
    Make(kOld23);
    const std::string before = ReadFile(path);
    const std::string big(300 * 1024, 'c');
    IDTags tags = Tags({{"Title", "New"}});
    tags.AddBinary(S("_albumart_1_Front Album Cover"), big.data(), static_cast<uint32_t>(big.size()));

    // Growing past the limit fails with EFBIG instead of a signal.
    struct sigaction ignore = {}, old = {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGXFSZ, &ignore, &old), 0);
    rlimit saved = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    rlimit limit = saved;
    limit.rlim_cur = before.size() + 100 * 1024;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const bool written = WriteStdTags(S(path), tags, 1, log.Target());
    setrlimit(RLIMIT_FSIZE, &saved);
    sigaction(SIGXFSZ, &old, nullptr);

    EXPECT_FALSE(written);
    EXPECT_NE(log.Text().find("Could not write ID3v2 tag  [WriteStdTags]\r\nThere is no room for the larger ID3v2 tag"),
              std::string::npos) << log.Text();
    EXPECT_EQ(ReadFile(path), before);
    ASSERT_TRUE(WriteStdTags(S(path), tags, 1, log.Target()));   // without the limit it goes through
    TagBytes();
    EXPECT_EQ(Read(), "TagVersion=ID3v2.3;Album=Album;Title=New;_albumart_1_Front Album Cover=[307200 bytes];");
}
