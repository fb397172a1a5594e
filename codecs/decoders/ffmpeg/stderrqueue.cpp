#include "codecs/decoders/ffmpeg/stderrqueue.h"

#include <algorithm>
#include <utility>

#include "transport/exceptions.h"
#include "transport/waitable.h"

namespace {

constexpr size_t kMaxLineBytes = 0x1000000;
constexpr size_t kChunkBytes = 65536;   // the pipe's whole buffer
constexpr size_t kMaxHeldBytes = size_t{64} << 20;

// What a queued line costs, its bookkeeping included.
size_t HeldBytes(const std::string& line) { return sizeof(std::string) + line.capacity(); }

}  // namespace

void StdErrLineQueue::Start(Qel::streamIn& stream) {
    Stop();
    stream_ = &stream;
    discarding_ = false;
    dataEvent_ = std::make_unique<Qel::waitable>();
    thread_ = std::make_unique<Qel::thread>("StdErrReader",
                                            Qel::thread::kMakeAborter | Qel::thread::kAbortOnDestroy);
    thread_->start([this] { Run(); });
}

// Ends only by an exception of the reader (end of stream, abort), which the
// thread's frame swallows.
void StdErrLineQueue::Run() {
    StdErrLineReader reader(*stream_);
    for (;;) {
        std::string line = reader.ReadLine();
        std::lock_guard<std::mutex> guard(lock_);
        if (discarding_) break;
        if (lines_.empty()) dataEvent_->Set();
        Append(std::move(line));
    }
    // Drained to the end, so that the worker never blocks on its error pipe.
    while (reader.SkipChunk()) {
    }
}

// A worker may print without end before its first audio byte, while nobody
// takes lines: the queue never holds more than its limit. Beyond it the
// oldest lines go, down to three quarters of the limit at once, so that the
// lines behind them move only now and then. Holds the lock.
void StdErrLineQueue::Append(std::string line) {
    heldBytes_ += HeldBytes(line);
    lines_.push_back(std::move(line));
    if (heldBytes_ <= kMaxHeldBytes) return;
    auto kept = lines_.begin();
    while (kept != lines_.end() && heldBytes_ > kMaxHeldBytes / 4 * 3) heldBytes_ -= HeldBytes(*kept++);
    lines_.erase(lines_.begin(), kept);
}

std::vector<std::string> StdErrLineQueue::TakeLines(double timeoutSeconds) {
    if (!dataEvent_) return {};
    Qel::waitable* const events[] = {dataEvent_.get()};
    if (Qel::WaitAny(events, 1, timeoutSeconds) != 0) return {};
    // Reset under the lock: a line appended after the take sets the event again.
    std::lock_guard<std::mutex> guard(lock_);
    dataEvent_->Reset();
    heldBytes_ = 0;
    return std::exchange(lines_, {});
}

void StdErrLineQueue::Discard() {
    std::lock_guard<std::mutex> guard(lock_);
    discarding_ = true;
    Clear();
    if (dataEvent_) dataEvent_->Reset();
}

void StdErrLineQueue::Clear() {
    lines_.clear();
    lines_.shrink_to_fit();
    heldBytes_ = 0;
}

void StdErrLineQueue::Stop() {
    // The thread's own aborter ends a blocked read; the destructor sets it and joins.
    thread_.reset();
    dataEvent_.reset();
    stream_ = nullptr;
    std::lock_guard<std::mutex> guard(lock_);
    Clear();
}

StdErrLineReader::StdErrLineReader(Qel::streamIn& stream) : stream_(stream), chunk_(kChunkBytes) {}

bool StdErrLineReader::Fill() {
    if (at_ < end_) return true;
    // A pipe read takes what is there without looking at the aborter, and a
    // worker may write for ever: the reader looks before each chunk.
    Qel::CheckAbort();
    at_ = 0;
    end_ = stream_.readSome(chunk_.data(), chunk_.size());
    return end_ != 0;
}

bool StdErrLineReader::SkipChunk() {
    const bool more = Fill();
    at_ = end_;
    return more;
}

std::string StdErrLineReader::ReadLine() {
    std::string line;
    bool overlong = false;         // the line passed the limit: its bytes are dropped
    bool carriageReturn = false;   // 13 came last: the text before it is kept only if 10 follows
    for (;;) {
        if (!Fill()) throw Qel::invalid_input();
        const char* const begin = chunk_.data() + at_;
        const char* const stop = chunk_.data() + end_;
        const char* const mark = std::find_if(begin, stop, [](char c) { return c == '\n' || c == '\r'; });
        if (mark != begin) {
            if (carriageReturn) {
                line.clear();
                overlong = false;
                carriageReturn = false;
            }
            const size_t length = static_cast<size_t>(mark - begin);
            if (!overlong && line.size() + length > kMaxLineBytes) {
                overlong = true;
                line.clear();
                line.shrink_to_fit();   // a reader that lives for hours doesn't keep 16 MiB
            }
            if (!overlong) line.append(begin, length);
        }
        at_ = static_cast<size_t>(mark - chunk_.data());
        if (mark == stop) continue;
        ++at_;
        if (*mark == '\r') {
            carriageReturn = true;
            continue;
        }
        if (!overlong) return line;
        overlong = false;
        carriageReturn = false;
    }
}
