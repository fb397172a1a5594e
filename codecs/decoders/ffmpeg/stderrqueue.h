#pragma once
// The worker's error text, taken off its pipe line by line in a thread of its
// own so that the worker never blocks on it.

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "transport/streams.h"
#include "transport/thread.h"
#include "transport/waitable.h"

class StdErrLineQueue {
public:
    StdErrLineQueue() = default;
    StdErrLineQueue(const StdErrLineQueue&) = delete;
    StdErrLineQueue& operator=(const StdErrLineQueue&) = delete;
    ~StdErrLineQueue() { Stop(); }

    // Starts the reader "StdErrReader" on `stream` at the caller's priority.
    void Start(Qel::streamIn& stream);
    // All queued lines in order, or none after the limit. Raises user_abort.
    std::vector<std::string> TakeLines(double timeoutSeconds);
    // Nobody takes lines any more: drops the queued ones, and the reader
    // goes on draining the pipe without keeping what it reads.
    void Discard();
    // Ends the thread, drops the lines.
    void Stop();
    bool Active() const { return thread_ != nullptr; }

private:
    void Run();
    void Append(std::string line);
    void Clear();

    // Oldest first; at most 64 MiB with their bookkeeping, the oldest dropped beyond.
    std::vector<std::string> lines_;
    size_t heldBytes_ = 0;
    bool discarding_ = false;
    std::mutex lock_;
    Qel::streamIn* stream_ = nullptr;
    std::unique_ptr<Qel::thread> thread_;
    std::unique_ptr<Qel::waitable> dataEvent_;
};

// Lines of the worker's error text, read from the stream in chunks. Byte 10
// ends a line, and a byte 13 before it is dropped. Text that a byte 13 ends
// otherwise is progress that a terminal would overwrite in place: no parser
// needs it, so it is dropped rather than growing one endless line. A line
// over 16 MiB is dropped whole, and reading goes on behind it.
class StdErrLineReader {
public:
    explicit StdErrLineReader(Qel::streamIn& stream);

    // The next line. At the end of the stream raises Qel::invalid_input; a
    // last line without its line feed is lost.
    std::string ReadLine();
    // Reads and drops one chunk; false at the end of the stream.
    bool SkipChunk();

private:
    bool Fill();

    Qel::streamIn& stream_;
    std::vector<char> chunk_;
    size_t at_ = 0;
    size_t end_ = 0;
};
