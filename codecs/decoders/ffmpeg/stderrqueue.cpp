#include "codecs/decoders/ffmpeg/stderrqueue.h"

#include <utility>

#include "transport/exceptions.h"

namespace {

constexpr size_t kMaxLineBytes = 0x1000000;

}  // namespace

void StdErrLineQueue::Start(Qel::streamIn& stream) {
    Stop();
    stream_ = &stream;
    dataEvent_ = std::make_unique<Qel::waitable>();
    thread_ = std::make_unique<Qel::thread>("StdErrReader",
                                            Qel::thread::kMakeAborter | Qel::thread::kAbortOnDestroy);
    thread_->start([this] { Run(); });
}

// Ends only by an exception of ReadLine (end of stream, abort, overlong
// line), which the thread's frame swallows.
void StdErrLineQueue::Run() {
    for (;;) {
        std::string line = ReadLine(*stream_);
        std::lock_guard<std::mutex> guard(lock_);
        if (lines_.empty()) dataEvent_->Set();
        lines_.push_back(std::move(line));
    }
}

std::vector<std::string> StdErrLineQueue::TakeLines(double timeoutSeconds) {
    if (!dataEvent_) return {};
    Qel::waitable* const events[] = {dataEvent_.get()};
    if (Qel::WaitAny(events, 1, timeoutSeconds) != 0) return {};
    // Reset under the lock: a line appended after the take sets the event again.
    std::lock_guard<std::mutex> guard(lock_);
    dataEvent_->Reset();
    return std::exchange(lines_, {});
}

void StdErrLineQueue::Stop() {
    // The thread's own aborter ends a blocked read; the destructor sets it and joins.
    thread_.reset();
    dataEvent_.reset();
    stream_ = nullptr;
    std::lock_guard<std::mutex> guard(lock_);
    lines_.clear();
}

std::string ReadLine(Qel::streamIn& stream) {
    std::string line;
    for (;;) {
        char byte;
        if (stream.read(&byte, 1) != 1) throw Qel::invalid_input();
        if (byte == '\n') return line;
        if (byte == '\r') continue;
        if (line.size() == kMaxLineBytes) throw Qel::invalid_input();
        line.push_back(byte);
    }
}
