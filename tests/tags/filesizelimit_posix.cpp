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

// That a write goes through when there is room, and an ID3v2 tag that grows moves the audio: MutagenId3, MutagenApe.
TEST_F(TagID3v2WriteTest, AFileSizeLimitLeavesTheOldTags) {
    IDTags withCover = Tags({{"Title", "New"}});
    const std::string big(300 * 1024, 'c');
    withCover.AddBinary(S("_albumart_1_Front Album Cover"), big.data(), static_cast<uint32_t>(big.size()));
    const FlowRow rows[] = {
        {"APE", "", ApeTag({{"Title", "t"}, {"Album", "a"}}).Bytes(), WriteWithRoom(Tags({{"Comment", std::string(4096, 'c')}}), 100), "",
         kRefused, {"Could not write APE tag  [WriteStdTags]\r\nThe file could not be changed."}},
        {"ID3v2", Tag(3, Frame23("TIT2", Text("Old"))), "", WriteWithRoom(withCover, 100 * 1024), "", kRefused,
         {"Could not write ID3v2 tag  [WriteStdTags]\r\nThere is no room for the larger ID3v2 tag"}},
    };
    for (const FlowRow& row : rows) Check(row);
}
