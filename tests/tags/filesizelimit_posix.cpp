// A write that finds no room in the file (a POSIX file size limit) fails
// before any byte moves and leaves the old tags; without the limit it goes through.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tagfixture.h"
#include "tags/stdtags.h"

using namespace tagtest;

namespace {

// The write of `tags`, run in a child that may grow the file by `room` bytes at most.
FlowRow::Flow WriteWithRoom(const IDTags& tags, rlim_t room) {
    return [tags, room](const std::string& path, const clLogTarget* log) {
        const pid_t child = ::fork();
        if (child == 0) {
            std::signal(SIGXFSZ, SIG_IGN);   // growing past the limit fails with EFBIG instead
            const rlim_t limit = static_cast<rlim_t>(ReadFile(path).size()) + room;
            const rlimit r{limit, limit};
            ::_exit(::setrlimit(RLIMIT_FSIZE, &r) != 0 ? 3 : WriteStdTags(S(path), tags, 1, log) ? 0 : 1);
        }
        int status = 0;
        return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    };
}

}  // namespace

using TagID3v2WriteTest = TagFileTest;   // the name its neighbours know it by

TEST_F(TagID3v2WriteTest, AFileSizeLimitLeavesTheOldTags) {
    const std::string oldApe = ApeTag({{"Title", "t"}, {"Album", "a"}}).Bytes(), comment(4096, 'c');
    const std::string old23 = Tag(3, Frame23("TIT2", Text("Old")) + Frame23("TALB", Text("Album")));
    IDTags withCover = Tags({{"Title", "New"}});
    const std::string big(300 * 1024, 'c');
    withCover.AddBinary(S("_albumart_1_Front Album Cover"), big.data(), static_cast<uint32_t>(big.size()));
    const IDTags withComment = Tags({{"Comment", comment}});
    const std::string apeLogged = "Could not write APE tag  [WriteStdTags]\r\nThe file could not be changed.";
    const std::string id3Logged = "Could not write ID3v2 tag  [WriteStdTags]\r\nThere is no room for the larger ID3v2 tag";
    const FlowRow rows[] = {
        {"APE, no room", "", oldApe, WriteWithRoom(withComment, 100), "", kRefused, {apeLogged}},
        {"APE, room", "", oldApe, WriteWithRoom(withComment, 1 << 20), "",
         ApeTag({{"Title", "t"}, {"Album", "a"}, {"Comment", comment}}).Bytes()},
        {"ID3v2, no room", old23, "", WriteWithRoom(withCover, 100 * 1024), "", kRefused, {id3Logged}},
    };
    for (const FlowRow& row : rows) Check(row);
    ASSERT_TRUE(WriteStdTags(S(path), withCover, 1, log.Target()));   // without the limit
    EXPECT_EQ(Front(), Tag(3, Frame23("TIT2", Text("New") + '\0') + Frame23("TALB", Text("Album")) +
                              Frame23("APIC", std::string("\0\0\x03\0", 4) + big)));
}
