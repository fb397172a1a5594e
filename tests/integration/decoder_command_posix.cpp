// A named quit event on Linux: the user's own FIFO, not fooled by what others put there.

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "codecs/decoders/ffmpeg/decoder.h"
#include "codecs/decoders/ffmpeg/quitevent.h"
#include "testkit.h"

namespace {

using Decoder = clDecoder_ffmpeg;

// An open of a watched file since the last look (the kernel reports even one closed at once).
bool Opened(int watch) {
    alignas(inotify_event) char events[4096];
    return ::read(watch, events, sizeof events) > 0;
}

// The FIFO at `path` made by the user 65534 (as another local user could
// make /tmp/<name> before the host): a child that gives up root makes it.
bool MakeFifoAsAnotherUser(const std::string& path) {
    const pid_t pid = ::fork();
    if (pid == 0) ::_exit(::setgid(65534) == 0 && ::setuid(65534) == 0 && ::mkfifo(path.c_str(), 0666) == 0 ? 0 : 1);
    int status = 0;
    return pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(QuitEvent, AFifoOfItsOwnThatTheHostSetsAndNothingElse) {
    EXPECT_EQ(QuitEventPath(clString(u"HostQuit")), "/tmp/HostQuit");
    EXPECT_EQ(QuitEventPath(clString(u"Local\\host/quit")), "/tmp/Local_host_quit");

    it::TempDir dir;
    ASSERT_EQ(::chmod(dir.Path().c_str(), 01777), 0);   // open to all, as /tmp is
    const std::string path = dir.File("quit");
    Decoder decoder(DecoderCreateInfo{});
    EXPECT_TRUE(decoder.SetQuitEvent(nullptr));
    EXPECT_FALSE(decoder.quitSignal.has_value());
    ASSERT_TRUE(decoder.SetQuitEvent(clString::FromUtf8(dir.File("first")).Text()));
    const Qel::EventHandle first = decoder.quitSignal->Handle();
    EXPECT_TRUE(decoder.SetQuitEvent(nullptr));
    EXPECT_FALSE(decoder.SetQuitEvent(clString::FromUtf8(dir.File("missing/quit")).Text()));
    EXPECT_EQ(decoder.quitSignal->Handle(), first) << "a null name, or one that can't be opened, keeps the event there was";
    ASSERT_TRUE(decoder.SetQuitEvent(clString::FromUtf8(path).Text()));
    Qel::aborter* event = &*decoder.quitSignal;
    EXPECT_NE(event->Handle(), first);
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    EXPECT_FALSE(event->IsSet());
    DecoderBlockInfo block{};   // without a worker there is nothing to read, and Close is harmless
    EXPECT_TRUE(!decoder.DecodeBlock(&block) && decoder.Close() && decoder.Close());

    const int host = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);   // the host's end
    ASSERT_GE(host, 0);
    ASSERT_EQ(::write(host, "x", 1), 1);
    EXPECT_TRUE(event->IsSet());
    const int watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(::inotify_add_watch(watch, path.c_str(), IN_OPEN), 0);
    EXPECT_TRUE(OpenQuitEvent(clString::FromUtf8(path))->IsSet()) << "every decoder watching sees it set";
    EXPECT_TRUE(Opened(watch)) << "the watch sees an open";
    char byte = 0;
    ASSERT_EQ(::read(host, &byte, 1), 1);
    EXPECT_FALSE(event->IsSet());
    ::close(host);
    EXPECT_FALSE(event->IsSet()) << "the host closing its end is no hang-up";

    // Refused without being opened: a regular file, a symbolic link to a FIFO
    // (the FIFO watched), a FIFO of another user.
    const std::string file = dir.File("hostname"), link = dir.File("link"), foreign = dir.File("foreign");
    it::WriteFile(file, "host\n");
    ASSERT_EQ(::symlink(path.c_str(), link.c_str()), 0);
    const bool root = ::geteuid() == 0;
    if (root) { ASSERT_TRUE(MakeFifoAsAnotherUser(foreign)); }
    const std::pair<std::string, std::string> refused[] = {{file, file}, {link, path}, {foreign, foreign}};
    const int descriptors = it::CurrentResources().descriptors;
    for (const auto& [name, watched] : refused) {
        if (name == foreign && !root) continue;
        SCOPED_TRACE(name);
        ASSERT_GE(::inotify_add_watch(watch, watched.c_str(), IN_OPEN), 0);
        EXPECT_FALSE(OpenQuitEvent(clString::FromUtf8(name)).has_value());
        EXPECT_FALSE(Opened(watch)) << "opened before it was refused";
    }
    EXPECT_EQ(it::CurrentResources().descriptors, descriptors);
    ::close(watch);
    if (!root) GTEST_SKIP() << "not root: no FIFO of another user can be made (fork + setuid); the rest passed";
}

}  // namespace
