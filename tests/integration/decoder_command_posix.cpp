// The Linux answers of the decoder: the worker is "ffmpeg-lgpl" one folder
// above the code that looks for it, and the named quit event is a FIFO.

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
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

    it::WriteFile(dir.File("plain"), "not a fifo");
    EXPECT_FALSE(OpenQuitEvent(clString::FromUtf8(dir.File("plain"))).has_value());
    EXPECT_FALSE(OpenQuitEvent(clString::FromUtf8(dir.File("no/such/folder/quit"))).has_value());
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
