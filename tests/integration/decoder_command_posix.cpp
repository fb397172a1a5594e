// The Linux answers of the decoder: the worker is "ffmpeg-lgpl" one folder
// above the code that looks for it, and the named quit event is a FIFO of
// the user's own.

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "codecs/decoders/ffmpeg/decoder.h"
#include "codecs/decoders/ffmpeg/quitevent.h"
#include "testkit.h"

namespace {

using Decoder = clDecoder_ffmpeg;

TEST(WorkerCommand, BareNameAndPathOneFolderAbove) {
    const WorkerCommand seek = Decoder::BuildWorkerCommand("x.ac3", 1.0);
    EXPECT_EQ(seek.args.at(0), "ffmpeg-lgpl");
    // One folder above the code that looks for it, here this test program.
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_EQ(seek.exe, (self.parent_path().parent_path() / "ffmpeg-lgpl").string());
}

bool Readable(Qel::EventHandle handle) {
    pollfd fd{static_cast<int>(handle), POLLIN, 0};
    return ::poll(&fd, 1, 0) == 1 && (fd.revents & POLLIN);
}

TEST(QuitEvent, NamesFifoAndSetState) {
    EXPECT_EQ(QuitEventPath(clString(u"HostQuit")), "/tmp/HostQuit");
    EXPECT_EQ(QuitEventPath(clString(u"Local\\host/quit")), "/tmp/Local_host_quit");
    EXPECT_EQ(QuitEventPath(clString(u"/run/user/quit")), "/run/user/quit");

    it::TempDir dir;
    const std::string path = dir.File("quit");
    std::optional<Qel::aborter> event = OpenQuitEvent(clString::FromUtf8(path));
    ASSERT_TRUE(event.has_value());
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    EXPECT_FALSE(event->IsSet());
    EXPECT_FALSE(Readable(event->Handle()));

    const int host = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);   // the host's end
    ASSERT_GE(host, 0);
    ASSERT_EQ(::write(host, "x", 1), 1);
    EXPECT_TRUE(event->IsSet());
    EXPECT_TRUE(Readable(event->Handle()));
    EXPECT_TRUE(OpenQuitEvent(clString::FromUtf8(path))->IsSet()) << "every decoder watching sees it set";
    char byte = 0;
    ASSERT_EQ(::read(host, &byte, 1), 1);
    EXPECT_FALSE(event->IsSet());
    ::close(host);
    EXPECT_FALSE(event->IsSet()) << "the host closing its end is no hang-up";

    EXPECT_FALSE(OpenQuitEvent(clString::FromUtf8(dir.File("no/such/folder/quit"))).has_value());
}

// Whether the file at `path` (a link's target) was opened since the watch
// began: the kernel reports every open, also one that was closed again.
class OpenWatch {
public:
    explicit OpenWatch(const std::string& path) : fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        if (::inotify_add_watch(fd_, path.c_str(), IN_OPEN) < 0) ADD_FAILURE() << "no watch on " << path;
    }
    OpenWatch(const OpenWatch&) = delete;
    OpenWatch& operator=(const OpenWatch&) = delete;
    ~OpenWatch() { ::close(fd_); }
    bool Opened() const {
        alignas(inotify_event) char events[4096];
        return ::read(fd_, events, sizeof events) > 0;
    }

private:
    int fd_;
};

// The FIFO at `path` made by the user 65534 (as another local user could
// make /tmp/<name> before the host): a child that gives up root makes it.
bool MakeFifoAsAnotherUser(const std::string& path) {
    const pid_t pid = ::fork();
    if (pid == 0) ::_exit(::setgid(65534) == 0 && ::setuid(65534) == 0 && ::mkfifo(path.c_str(), 0666) == 0 ? 0 : 1);
    int status = 0;
    return pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(QuitEvent, RefusesAllButItsOwnFifoLeavingItUnopened) {
    it::TempDir dir;
    ASSERT_EQ(::chmod(dir.Path().c_str(), 01777), 0);   // open to all, as /tmp is
    const std::string file = dir.File("hostname"), fifo = dir.File("fifo"), link = dir.File("link");
    const std::string foreign = dir.File("foreign");
    it::WriteFile(file, "host\n");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_EQ(::symlink(fifo.c_str(), link.c_str()), 0);
    const bool root = ::geteuid() == 0;
    if (root) { ASSERT_TRUE(MakeFifoAsAnotherUser(foreign)); }
    const struct {
        const char* what;
        std::string name, watched;
    } refused[] = {{"a regular file", file, file}, {"a symbolic link to a FIFO", link, fifo}, {"a FIFO of another user", foreign, foreign}};
    const int descriptors = it::CurrentResources().descriptors;
    for (const auto& c : refused) {
        if (c.name == foreign && !root) continue;
        SCOPED_TRACE(c.what);
        const OpenWatch watch(c.watched);
        EXPECT_FALSE(OpenQuitEvent(clString::FromUtf8(c.name)).has_value());
        EXPECT_FALSE(watch.Opened()) << "opened before it was refused";
    }
    EXPECT_EQ(it::CurrentResources().descriptors, descriptors);
    const OpenWatch watch(fifo);
    EXPECT_TRUE(OpenQuitEvent(clString::FromUtf8(fifo)).has_value()) << "its own FIFO is taken";
    EXPECT_TRUE(watch.Opened()) << "the watch sees an open";
    if (!root) GTEST_SKIP() << "not root: no FIFO of another user can be made (fork + setuid); the rest passed";
}

TEST(QuitEvent, DecoderKeepsItsEventOnNullAndReplacesIt) {
    it::TempDir dir;
    Decoder decoder(DecoderCreateInfo{});
    EXPECT_TRUE(decoder.SetQuitEvent(nullptr));
    EXPECT_FALSE(decoder.quitSignal.has_value());
    ASSERT_TRUE(decoder.SetQuitEvent(clString::FromUtf8(dir.File("one")).Text()));
    const Qel::EventHandle first = decoder.quitSignal->Handle();
    EXPECT_TRUE(decoder.SetQuitEvent(nullptr));
    ASSERT_TRUE(decoder.quitSignal.has_value());
    EXPECT_EQ(decoder.quitSignal->Handle(), first);
    ASSERT_TRUE(decoder.SetQuitEvent(clString::FromUtf8(dir.File("two")).Text()));
    EXPECT_FALSE(decoder.SetQuitEvent(clString::FromUtf8(dir.File("missing/three")).Text()));
    EXPECT_TRUE(decoder.quitSignal.has_value()) << "a name that can't be opened keeps the event there was";

    // Without a worker there is nothing to read, and Close is harmless.
    DecoderBlockInfo block{};
    EXPECT_FALSE(decoder.DecodeBlock(&block));
    EXPECT_TRUE(decoder.Close());
    EXPECT_TRUE(decoder.Close());
}

}  // namespace
