// Decoders in several threads share the tables and one trace log: every
// answer must stay right (torn log lines: tests/support/io_test.cpp).

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "host/plugin.h"
#include "host/text.h"
#include "plugin_test_util.h"

TEST(PluginThreads, ConcurrentDecodersAnswerRight) {
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
    // Every call traced, none lost: 2 lines per round, each ends in CR LF.
    const std::string log = ReadFile(dir.File("trace.log"));
    const std::string crlf = Utf16Le("\r\n");
    size_t lines = 0;
    for (size_t at = log.find(crlf); at != std::string::npos; at = log.find(crlf, at + crlf.size())) ++lines;
    EXPECT_EQ(lines, size_t{2} * kThreads * kRounds);
}
