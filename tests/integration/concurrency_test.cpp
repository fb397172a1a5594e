// Decoders side by side in threads, and the long run: many cycles of Open,
// DecodeBlock, SetPosition and Close leave descriptors, threads and child
// processes as they were.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "plugindriver.h"
#include "testkit.h"

namespace {

TEST(Concurrency, FourDecodersInFourThreadsEachExact) {
    it::TempDir dir;
    const std::vector<std::vector<std::string>> encodes = {
        {"-f", "lavfi", "-i", "sine=frequency=220:duration=3", "-ac", "2", dir.File("a.flac")},
        {"-f", "lavfi", "-i", "sine=frequency=330:duration=3:sample_rate=48000", "-ac", "2", "-c:a", "ac3",
         dir.File("b.ac3")},
        {"-f", "lavfi", "-i", "sine=frequency=440:duration=3", "-ac", "6", "-c:a", "pcm_s24le", dir.File("c.mka")},
        {"-f", "lavfi", "-i", "sine=frequency=550:duration=3", "-ac", "1", "-c:a", "tta", dir.File("d.tta")},
    };
    std::vector<std::string> inputs;
    std::vector<std::string> references;
    for (const auto& encode : encodes) {
        it::Ffmpeg(encode);
        inputs.push_back(encode.back());
        references.push_back(it::ReferenceDecode(dir, inputs.back()).data);
    }

    it::Plugin();   // loaded before the threads start
    std::vector<std::string> outputs(inputs.size());
    std::vector<std::string> errors(inputs.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < inputs.size(); ++i) {
        threads.emplace_back([&, i] {
            it::TestDecoder decoder;
            if (!decoder.Open(inputs[i], kOpenWantTags | kOpenWantInfo) || !decoder.ReadToEnd(outputs[i])) {
                errors[i] = "failed: " + decoder.ErrorLog();
            }
            decoder.Close();
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (size_t i = 0; i < inputs.size(); ++i) {
        SCOPED_TRACE(inputs[i]);
        EXPECT_EQ(errors[i], "");
        EXPECT_EQ(outputs[i].size(), references[i].size());
        EXPECT_TRUE(outputs[i] == references[i]) << "sample bytes differ";
    }
}

int Cycles() {
    const char* text = std::getenv("FD_IT_CYCLES");
    return text ? std::atoi(text) : 500;
}

// One run as a host makes it, on one decoder; false on any failure.
bool OneCycle(it::TestDecoder& decoder, const std::string& path) {
    DecoderBlockInfo block{};
    return decoder.Open(path, kOpenWantTags | kOpenWantInfo) && decoder.DecodeBlock(block) &&
           decoder.SetPosition(2000) && decoder.DecodeBlock(block) && decoder.Close();
}

TEST(Concurrency, ManyCyclesLeaveNothingBehind) {
    it::TempDir dir;
    const std::string path = dir.File("tiny.wav");
    it::Ffmpeg({"-f", "lavfi", "-i", "sine=duration=0.2", "-ac", "2", path});
    {
        it::TestDecoder warmUp;
        ASSERT_TRUE(OneCycle(warmUp, path)) << warmUp.ErrorLog();
    }
    const it::Resources before = it::CurrentResources();
    it::TestDecoder decoder;
    const int cycles = Cycles();
    for (int i = 0; i < cycles; ++i) {
        ASSERT_TRUE(OneCycle(decoder, path)) << "cycle " << i << ": " << decoder.ErrorLog();
    }
    decoder.Destroy();
    const it::Resources after = it::CurrentResources();
    EXPECT_EQ(after.descriptors, before.descriptors + 2) << "the decoder's two logs stay open until it goes";
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_EQ(after.children, 0);
    EXPECT_EQ(decoder.ErrorLog(), "");
}

}  // namespace
