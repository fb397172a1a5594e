// A write that finds no room in the file (a POSIX file size limit) fails
// before any byte moves and leaves the old tags.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tagfixture.h"
#include "tags/stdtags.h"

using namespace tagtest;
using namespace std::string_literals;

class HostileApeLimitTest : public TagFileTest {};

TEST_F(HostileApeLimitTest, AFileSizeLimitLeavesTheOldApeTag) {
    const std::string old = ApeTag({{"Title", "t"}, {"Album", "a"}}).Bytes();
    const IDTags larger = Tags({{"Comment", std::string(4096, 'c')}});
    Make(old);
    // Root may grow any file: the flow runs in a child with a limit on file size.
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{kAudio + old.size() + 100, kAudio + old.size() + 100};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) ::_exit(3);
        ::_exit(WriteStdTags(S(path), larger, 1, log.Target()) ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(Tail(), old);
    EXPECT_NE(log.Text().find("Could not write APE tag  [WriteStdTags]\r\nThe file could not be changed."s),
              std::string::npos)
        << log.Text();
}
