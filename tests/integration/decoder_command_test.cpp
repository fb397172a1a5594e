// Without a worker: its command line and path, the private quit event, fdhost's tag blob reader
// against damaged blobs. Linux-only parts: decoder_command_posix.cpp.

#include <gtest/gtest.h>

#include <filesystem>

#include "codecs/decoders/ffmpeg/decoder.h"
#include "codecs/decoders/ffmpeg/selfpath.h"
#include "host/errors.h"
#include "host/tagblob.h"
#include "support/clBuffer.h"
#include "tags/idtags.h"
#include "testkit.h"
#include "transport/exceptions.h"

namespace {

using Decoder = clDecoder_ffmpeg;

TEST(WorkerCommand, SecondsTextAndArguments) {
    const std::pair<double, const char*> seconds[] = {
        {12.5, "12.5"}, {0.000001, "0.000001"}, {3.0, "3"}, {0.0, "0"}, {-2.25, "-2.25"},
        {1.0 / 3.0, "0.333333"}, {0.0000005, "0.000001"}, {59.9999996, "60"}, {7200.10, "7200.1"},
        {1e300, "18446744073709.551615"},   // clamped: no undefined conversion
    };
    for (const auto& [value, text] : seconds) EXPECT_EQ(Decoder::SecondsText(value), text) << value;
    // No start time at or below 0; the rest of the command line: WorkerTable.ArgumentsArriveAsGivenAndASeekRestarts.
    const WorkerCommand command = Decoder::BuildWorkerCommand("x.ac3", -1.0);
    EXPECT_EQ(std::vector<std::string>(command.args.begin() + 1, command.args.end()),
              (std::vector<std::string>{"-i", "x.ac3", "-f", "w64", "-"}));
    EXPECT_EQ(command.stdinMode, 0u) << "the worker never reads the host's standard input";
}

// A plug-in whose place is unknown, or the root, must not start a bare name from the working folder.
TEST(WorkerCommand, NoWorkerByARelativePath) {
    const it::TempDir dir;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.Path());
    it::WriteFile(WorkerFileName(), "#!/bin/sh\n");
    std::filesystem::permissions(WorkerFileName(), std::filesystem::perms::owner_all);
    for (const std::string& self : {std::string(), (before.root_path() / "ffmpeg_decoder.so").string()}) {
        WorkerCommand command = Decoder::BuildWorkerCommand("x.flac", 0.0);
        command.exe = Decoder::WorkerPathBeside(self);
        WorkerProcess worker;
        EXPECT_THROW(worker.Start(command), Qel::file_not_found) << self;
    }
    std::filesystem::current_path(before);
}

TEST(QuitEvent, AnEmptyNameGivesAPrivateEvent) {
    Decoder decoder(DecoderCreateInfo{}), other(DecoderCreateInfo{});
    ASSERT_TRUE(decoder.SetQuitEvent(u"") && other.SetQuitEvent(u""));
    decoder.quitSignal->Set();
    EXPECT_TRUE(decoder.quitSignal->IsSet());
    EXPECT_FALSE(other.quitSignal->IsSet()) << "each decoder's own";
}

TEST(FdhostTagBlob, RefusesDamagedBlobs) {
    IDTags one;
    one.Add(clString(u"NAME"), clString(u"value"));
    clBuffer blob;
    one.Serialise(blob);
    const std::string good(reinterpret_cast<const char*>(blob.Data()), blob.Size());
    ASSERT_EQ(host::ReadTagBlob(good.data(), good.size()).size(), 1u);
    std::vector<std::string> bad = {good.substr(0, good.size() - 3), good, good + "xy", good, good, "ab"};
    bad[1][0] = 2;                  // more entries counted than there are
    bad[3][7] = '\x7f';             // a huge length
    bad[4][good.size() - 2] = 'x';  // a value without its NUL inside the entry
    for (const std::string& bytes : bad) EXPECT_THROW(host::ReadTagBlob(bytes.data(), bytes.size()), host::HostError) << bytes.size();
}

}  // namespace
