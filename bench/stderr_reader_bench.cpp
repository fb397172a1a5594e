// The worker's error text through the reader the plug-in uses, over a real
// pipe: 4 MiB of progress text ended by carriage returns only, written in
// pieces of the size of one progress update (about 100 bytes) and of a full
// pipe. The CPU time is the reader's own (the writer is another thread).

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "codecs/decoders/ffmpeg/stderrqueue.h"
#include "transport/exceptions.h"
#include "transport/pipestream.h"

namespace {

constexpr size_t kTextBytes = 4u << 20;

std::string ProgressText() {
    std::string text;
    for (int i = 0; text.size() < kTextBytes; ++i)
        text += "size=" + std::to_string(i) + "kB time=00:00:01.00 bitrate=1411.2kbits/s speed=1x    \r";
    return text + "\n";
}

void ReaderOverAPipe(benchmark::State& state) {
    const std::string text = ProgressText();
    const size_t piece = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) state.SkipWithError("pipe2");
        ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
        std::thread writer([&] {
            for (size_t at = 0; at < text.size(); at += piece) {
                const size_t n = std::min(piece, text.size() - at);
                if (::write(ends[1], text.data() + at, n) != static_cast<ssize_t>(n)) break;
            }
            ::close(ends[1]);
        });
        Qel::streamInOverlapped stream;
        stream.handle = ends[0];
        StdErrLineReader reader(stream);
        size_t lines = 0;
        try {
            for (;;) lines += reader.ReadLine().size() > 0;
        } catch (const Qel::invalid_input&) {
        }
        writer.join();
        ::close(ends[0]);
        benchmark::DoNotOptimize(lines);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

BENCHMARK(ReaderOverAPipe)->Arg(100)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
