// The plug-in against its worker's misbehaviour, on both platforms: a stand-in
// worker (fake_worker.cpp) that writes nothing, no header, dies, stalls, or
// holds a call that the host's quit event must end. Never a hang, never a
// lost or moved byte, never a worker left behind.

#include <gtest/gtest.h>

#include "codecs/decoders/ffmpeg/selfpath.h"
#include "plugindriver.h"
#include "tests/transport/pattern.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

const std::string kLabel = "  [clDecoder_ffmpeg::SetPosition]\r\n";

int64_t MsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// A plug-in tree with the stand-in as its worker, the host's quit event, and
// the orders for the stand-in in files.
struct Stand {
    it::TempDir dir;
    it::PluginLibrary plugin{it::MakePluginTree(dir.File("tree"), FD_FAKE_WORKER)};
    it::QuitFifo quit{dir.File("quit")};

    std::string Orders(const std::string& name, const std::string& orders) const {
        it::WriteFile(dir.File(name), orders);
        return dir.File(name);
    }
    // `call` blocks; the event, set 300 ms into it, ends it within 100 ms.
    void ExpectEndedByQuit(const std::function<void()>& call) {
        Clock::time_point setAt;
        std::thread setter([&] {
            std::this_thread::sleep_for(300ms);
            setAt = Clock::now();
            quit.Set();
        });
        call();
        const Clock::time_point returned = Clock::now();
        setter.join();
        EXPECT_GE(returned - setAt, 0ms) << "the call ended before the event was set";
        EXPECT_LT(returned - setAt, 100ms);
        quit.Reset();
    }
};

struct Row {
    const char* name;
    std::string orders;
    bool opens;
    std::string log;       // the error log starts with this and ends with the label; "": it stays empty
    size_t bytes;          // the audio bytes that come, PatternByte(i) each
    bool stalls = false;   // read one block; Close then waits the grace time and kills
    std::string path = {}; // instead of an orders file
    bool noWorker = false; // no worker beside the plug-in
};

TEST(WorkerTable, EachMisbehaviourGivesItsResult) {
    Stand stand;
    it::PluginLibrary bare(it::MakePluginTree(stand.dir.File("bare"), ""));
    const std::string missing = stand.dir.File("missing.flac");
    const std::string undecodable = "File could not be decoded" + kLabel;
    const Row rows[] = {
        {"writes nothing, exits 1", "silent 1", false, undecodable, 0},
        {"writes no Wave64 header", "garbage 1", false, undecodable, 0},
        {"input that can't be opened", "", false, "Error opening file '" + missing + "', check no other program", 0,
         false, missing},
        {"a URL nobody answers", "", false, undecodable, 0, false, "http://127.0.0.1:9/none.mp3"},
        {"no worker beside the plug-in", "", false, "FFmpeg error: file not found" + kLabel, 0, false, {}, true},
        {"dies in mid-stream", "dieafter 100000", true, "", 100000},
        {"a data chunk of whole blocks", "frames 8192", true, "", 32768},
        {"stalls, deaf to its closed pipes", "stall 20000", true, "", 16384, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string path = row.path.empty() ? stand.Orders("input", row.orders) : row.path;
        {
            it::TestDecoder decoder(row.noWorker ? bare : stand.plugin);
            ASSERT_TRUE(decoder.SetQuitEvent(stand.quit.Path()));
            it::Later watchdog(30s, [&] { stand.quit.Set(); });   // a hang fails rather than hangs
            const auto start = Clock::now();
            EXPECT_EQ(decoder.Open(path, kOpenWantTags | kOpenWantInfo), row.opens);
            EXPECT_LT(MsSince(start), 3000) << "well below the 5 s that a parse waits for a silent error stream";
            const std::string log = decoder.ErrorLog();
            EXPECT_EQ(log.substr(0, row.log.size()), row.log) << log;
            EXPECT_TRUE(row.log.empty() ? log.empty() : log.ends_with(kLabel)) << log;
            std::string samples;
            if (row.opens && row.stalls) {
                DecoderBlockInfo block{};
                EXPECT_TRUE(decoder.DecodeBlock(block));
                samples.assign(static_cast<const char*>(block.samples), block.bytes);
            }
            std::vector<DecoderBlockInfo> blocks;
            DecoderBlockInfo none{};
            EXPECT_TRUE(row.opens || !decoder.DecodeBlock(none)) << "no stream, nothing to read";
            if (row.opens && !row.stalls) {
                EXPECT_TRUE(decoder.ReadToEnd(samples, &blocks));
                // A host that waits for the flag would spin on empty blocks without it.
                EXPECT_TRUE(!blocks.empty() && blocks.back().endOfStream == 1 && blocks.back().bytes > 0);
            }
            EXPECT_EQ(samples.size(), row.bytes);
            EXPECT_EQ(PatternMismatches(samples), 0u);
            EXPECT_TRUE(!row.opens || decoder.TraceLog().find("Opening file '" + path + "' for read access: <-<-") !=
                                          std::string::npos) << decoder.TraceLog();
            const auto closing = Clock::now();
            EXPECT_TRUE(decoder.Close());
            EXPECT_GE(MsSince(closing), row.stalls ? 1900 : 0);
            EXPECT_LT(MsSince(closing), row.stalls ? 4000 : 1000) << "a worker that ended gets no grace time";
        }
        EXPECT_EQ(it::ChildrenAfter(5000), 0) << "a worker was left behind";
        stand.quit.Reset();
    }
}

// The event set before a call refuses it; set while a call blocks, it ends it
// at once and silently. Reset, the run goes on where it stood.
TEST(WorkerTable, TheQuitEndsEachBlockedCallAndLosesNoByte) {
    Stand stand;
    it::QuitFifo& quit = stand.quit;
    {
        it::TestDecoder decoder(stand.plugin);
        ASSERT_TRUE(decoder.SetQuitEvent(quit.Path()));
        quit.Set();
        const auto start = Clock::now();
        EXPECT_FALSE(decoder.Open(stand.Orders("set", ""), 0));
        EXPECT_LT(MsSince(start), 100);
        EXPECT_EQ(it::ChildrenAfter(0), 0) << "no worker was started";
        quit.Reset();
        // A worker that writes nothing holds Open.
        stand.ExpectEndedByQuit([&] { EXPECT_FALSE(decoder.Open(stand.Orders("hang", "hang 1"), 0)); });
        EXPECT_EQ(decoder.ErrorLog(), "") << "a quit is no error";
        const auto destroying = Clock::now();
        decoder.Destroy();
        EXPECT_LT(MsSince(destroying), 1000) << "Destroy doesn't wait for the worker";
        EXPECT_EQ(it::ChildrenAfter(0), 0);
    }
    {
        // A worker that holds after 20000 bytes: the quit lands in mid-block.
        const std::string held = stand.Orders("held", "holdat 20000");
        it::TestDecoder decoder(stand.plugin);
        ASSERT_TRUE(decoder.SetQuitEvent(quit.Path()));
        ASSERT_TRUE(decoder.Open(held, 0)) << decoder.ErrorLog();
        DecoderBlockInfo block{};
        ASSERT_TRUE(decoder.DecodeBlock(block));
        std::string samples(static_cast<const char*>(block.samples), block.bytes);
        quit.Set();
        EXPECT_FALSE(decoder.DecodeBlock(block));
        quit.Reset();
        stand.ExpectEndedByQuit([&] { EXPECT_FALSE(decoder.DecodeBlock(block)); });
        it::WriteFile(held + ".go", "");
        EXPECT_TRUE(decoder.ReadToEnd(samples));
        EXPECT_EQ(samples.size(), 176400u);
        EXPECT_EQ(PatternMismatches(samples), 0u) << "bytes lost or moved by the quit";
        EXPECT_EQ(decoder.ErrorLog(), "");
    }
    {
        // A seek whose new worker writes nothing: cut short before the header,
        // the stream is at no sample, and DecodeBlock refuses at once rather
        // than hand out header bytes or wait.
        it::TestDecoder decoder(stand.plugin);
        ASSERT_TRUE(decoder.SetQuitEvent(quit.Path()));
        ASSERT_TRUE(decoder.Open(stand.Orders("seek", "seekhang 1"), 0)) << decoder.ErrorLog();
        stand.ExpectEndedByQuit([&] { EXPECT_FALSE(decoder.SetPosition(22050)); });
        it::Later rescue(1000ms, [&] { quit.Set(); });   // a decoder that waits fails rather than hangs
        const auto start = Clock::now();
        DecoderBlockInfo block{};
        EXPECT_FALSE(decoder.DecodeBlock(block));
        EXPECT_LT(MsSince(start), 100) << "DecodeBlock must refuse, not read";
        EXPECT_EQ(decoder.ErrorLog(), "");
    }
    EXPECT_EQ(it::ChildrenAfter(5000), 0);
}

// The arguments arrive as given, a path with a blank included; a seek starts
// a new worker with the start time before "-i", and its stream from its header.
TEST(WorkerTable, ArgumentsArriveAsGivenAndASeekRestarts) {
    Stand stand;
    const std::string path = stand.Orders("with blank", "frames 30000");
    it::TestDecoder decoder(stand.plugin);
    ASSERT_TRUE(decoder.Open(path, 0)) << decoder.ErrorLog();
    EXPECT_EQ(it::U32At(it::FormatHead(decoder.Format()), 4), 44100u);
    std::string first, second;
    ASSERT_TRUE(decoder.ReadToEnd(first));
    ASSERT_TRUE(decoder.SetPosition(22050)) << decoder.ErrorLog();
    ASSERT_TRUE(decoder.ReadToEnd(second));
    EXPECT_TRUE(decoder.Close());
    EXPECT_TRUE(first.size() == 120000 && second.size() == 120000);
    EXPECT_EQ(PatternMismatches(first) + PatternMismatches(second), 0u);
    const std::string tail = "-i\n" + path + "\n-f\nw64\n-\n\n";
    const std::string name = WorkerFileName() + std::string("\n");
    EXPECT_EQ(it::ReadFile(path + ".args"), name + tail + name + "-ss\n0.5\n" + tail);
}

// Records that Open refuses before it starts a worker, with their logs.
TEST(WorkerTable, RefusedRecords) {
    it::TestDecoder external;
    DecoderOpenInfo info{};
    info.path = u"/nowhere.flac";
    info.flags = kOpenExternalPackets;
    EXPECT_FALSE(external.OpenRecord(info));
    EXPECT_EQ(external.ErrorLog(), "Error cannot decode external-packet data.  [clDecoder_ffmpeg::Open]\r\n");

    it::TestDecoder noPath;
    DecoderOpenInfo empty{};
    empty.flags = kOpenWantTags;
    EXPECT_FALSE(noPath.OpenRecord(empty));
    EXPECT_EQ(noPath.ErrorLog(), "Attempting to open null file path.  [clDecoder_ffmpeg::Open]\r\n");
    EXPECT_NE(noPath.TraceLog().find("Opening file '' for read access: *** Error: Attempting"), std::string::npos)
        << noPath.TraceLog();
}

}  // namespace
