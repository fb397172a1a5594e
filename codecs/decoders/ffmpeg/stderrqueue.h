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
    // Ends the thread, drops the lines.
    void Stop();
    bool Active() const { return thread_ != nullptr; }

private:
    void Run();

    std::vector<std::string> lines_;
    std::mutex lock_;
    Qel::streamIn* stream_ = nullptr;
    std::unique_ptr<Qel::thread> thread_;
    std::unique_ptr<Qel::waitable> dataEvent_;
};

// One line: byte 10 ends it, byte 13 is dropped; the end of the stream or a
// line over 16 MiB raises Qel::invalid_input.
std::string ReadLine(Qel::streamIn& stream);
