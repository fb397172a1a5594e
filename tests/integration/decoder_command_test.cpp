// The worker's command line, where the worker is looked for, and the named
// quit event, without running a worker.

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "codecs/decoders/ffmpeg/decoder.h"
#include "codecs/decoders/ffmpeg/quitevent.h"
#include "testkit.h"

namespace {

TEST(WorkerCommand, SecondsAsText) {
    EXPECT_EQ(clDecoder_ffmpeg::SecondsText(12.5), "12.5");
    EXPECT_EQ(clDecoder_ffmpeg::SecondsText(0.000001), "0.000001");
    EXPECT_EQ(clDecoder_ffmpeg::SecondsText(3.0), "3");
    EXPECT_EQ(clDecoder_ffmpeg::SecondsText(0.0), "0");
    EXPECT_EQ(clDecoder_ffmpeg::SecondsText(-2.25), "-2.25");
    EXPECT_EQ(clDecoder_ffmpeg::SecondsText(1.0 / 3.0), "0.333333");
    EXPECT_EQ(clDecoder_ffmpeg::SecondsText(0.0000005), "0.000001") << "rounded to the microsecond";
    EXPECT_EQ(clDecoder_ffmpeg::SecondsText(59.9999996), "60");
    EXPECT_EQ(clDecoder_ffmpeg::SecondsText(7200.10), "7200.1");
    EXPECT_EQ(clDecoder_ffmpeg::SecondsText(1e300), "18446744073709.551615") << "no undefined conversion";
}

TEST(WorkerCommand, ArgumentsInOrder) {
    const WorkerCommand first = clDecoder_ffmpeg::BuildWorkerCommand("/music/a b.flac", 0.0);
    EXPECT_EQ(first.args,
              (std::vector<std::string>{"ffmpeg-lgpl", "-i", "/music/a b.flac", "-f", "w64", "-"}));
    const WorkerCommand seek = clDecoder_ffmpeg::BuildWorkerCommand("x.ac3", 1.0);
    EXPECT_EQ(seek.args, (std::vector<std::string>{"ffmpeg-lgpl", "-ss", "1", "-i", "x.ac3", "-f", "w64", "-"}));
    const WorkerCommand back = clDecoder_ffmpeg::BuildWorkerCommand("x.ac3", -1.0);
    EXPECT_EQ(back.args.at(1), "-i") << "no start time at or below 0";
    EXPECT_EQ(seek.stdinMode, 0u);
    EXPECT_EQ(seek.stdoutMode, 2u);
    EXPECT_EQ(seek.stderrMode, 2u);
    EXPECT_EQ(seek.exe, clDecoder_ffmpeg::WorkerPath());
}

// The worker lies one folder above the folder of the code that looks for it;
// here that code is linked into this test program.
TEST(WorkerCommand, WorkerBesideTheParentFolder) {
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_EQ(clDecoder_ffmpeg::WorkerPath(), (self.parent_path().parent_path() / "ffmpeg-lgpl").string());
}

TEST(QuitEvent, NamesBecomePaths) {
    EXPECT_EQ(QuitEventPath(clString(u"HostQuit")), "/tmp/HostQuit");
    EXPECT_EQ(QuitEventPath(clString(u"Local\\host/quit")), "/tmp/Local_host_quit");
    EXPECT_EQ(QuitEventPath(clString(u"/run/user/quit")), "/run/user/quit");
}

bool Readable(Qel::EventHandle handle) {
    pollfd fd{static_cast<int>(handle), POLLIN, 0};
    return ::poll(&fd, 1, 0) == 1 && (fd.revents & POLLIN);
}

TEST(QuitEvent, FifoIsCreatedAndReadableMeansSet) {
    it::TempDir dir;
    const std::string path = dir.File("quit");
    std::optional<Qel::aborter> event = OpenQuitEvent(clString::FromUtf8(path));
    ASSERT_TRUE(event.has_value());
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    EXPECT_FALSE(event->IsSet());
    EXPECT_FALSE(Readable(event->Handle()));

    // The host's side: its own descriptor on the same FIFO.
    const int host = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(host, 0);
    ASSERT_EQ(::write(host, "x", 1), 1);
    EXPECT_TRUE(event->IsSet());
    EXPECT_TRUE(Readable(event->Handle()));
    std::optional<Qel::aborter> second = OpenQuitEvent(clString::FromUtf8(path));
    ASSERT_TRUE(second.has_value());
    EXPECT_TRUE(second->IsSet()) << "every decoder watching the event sees it set";
    char byte = 0;
    ASSERT_EQ(::read(host, &byte, 1), 1);
    EXPECT_FALSE(event->IsSet());
    ::close(host);
    EXPECT_FALSE(event->IsSet()) << "the host closing its end is no hang-up";
}

TEST(QuitEvent, OnlyAFifoIsTaken) {
    it::TempDir dir;
    const std::string plain = dir.File("plain");
    it::WriteFile(plain, "not a fifo");
    EXPECT_FALSE(OpenQuitEvent(clString::FromUtf8(plain)).has_value());
    EXPECT_FALSE(OpenQuitEvent(clString::FromUtf8(dir.File("no/such/folder/quit"))).has_value());
}

TEST(QuitEvent, DecoderKeepsItsEventOnNullAndReplacesIt) {
    it::TempDir dir;
    clDecoder_ffmpeg decoder(DecoderCreateInfo{});
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
}

TEST(DecodeRun, NothingToReadWithoutAWorker) {
    clDecoder_ffmpeg decoder(DecoderCreateInfo{});
    DecoderBlockInfo block{};
    EXPECT_FALSE(decoder.DecodeBlock(&block));
    EXPECT_TRUE(decoder.Close()) << "Close without Open is harmless";
    EXPECT_TRUE(decoder.Close());
}

}  // namespace
