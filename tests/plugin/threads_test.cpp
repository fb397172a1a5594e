// Decoders in several threads share only the log and the tables: every trace
// line must arrive whole, none lost, and every answer stay right.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "host/plugin.h"
#include "host/text.h"
#include "plugin_test_util.h"

TEST(PluginThreads, ConcurrentDecodersKeepLogLinesWholeAndAnswersRight) {
    constexpr int kThreads = 4, kRounds = 200;
    const host::Plugin plugin(FD_PLUGIN_PATH);
    TempDir dir;
    const Fd trace(dir.File("trace.log"));
    DecoderCreateInfo info{};
    info.traceLog = trace.Get();

    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const host::Decoder decoder(plugin, info);
            for (int round = 0; round < kRounds; ++round) {
                DecoderParam param{};
                param.index = static_cast<uint32_t>((round + t) % static_cast<int>(kExpectedDecodes.size()));
                const char* expected = kExpectedDecodes[param.index].extension;
                if (decoder.Get(u"Decodes", param) != 1 || host::Utf16ToUtf8(host::WideView(param.text)) != expected) {
                    ++wrong;
                }
                param.text = u"x.MKV";
                if (decoder.Get(u"CanWriteIDTags", param) != 1 || param.value != 1) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong.load(), 0);

    const std::string log = ReadFile(dir.File("trace.log"));
    const std::string decodes = Utf16Le("Decodes  [clDecoder_ffmpeg::Get]\r\n");
    const std::string canWrite = Utf16Le("CanWriteIDTags  [clDecoder_ffmpeg::Get]\r\n");
    int counts[2] = {0, 0};
    for (size_t pos = 0; pos < log.size();) {
        const bool isDecodes = log.compare(pos, decodes.size(), decodes) == 0;
        const std::string& line = isDecodes ? decodes : canWrite;
        ASSERT_EQ(log.compare(pos, line.size(), line), 0) << "torn line at byte " << pos;
        ++counts[isDecodes];
        pos += line.size();
    }
    EXPECT_EQ(counts[1], kThreads * kRounds);
    EXPECT_EQ(counts[0], kThreads * kRounds);
}
