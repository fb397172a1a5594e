#pragma once
// --quit-after-ms: fdhost makes a FIFO of its own, hands its name to the
// decoder as its quit event, and sets the event (writes one byte) from a
// helper thread when the time is up. Gone with the scope: thread joined,
// FIFO closed and removed.

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "host/plugin.h"

namespace host {

class QuitTimer {
public:
    // Throws HostError when the FIFO can't be made or the decoder refuses it.
    QuitTimer(const Decoder& decoder, int64_t afterMs);
    QuitTimer(const QuitTimer&) = delete;
    QuitTimer& operator=(const QuitTimer&) = delete;
    ~QuitTimer();

    const std::string& EventName() const { return fifoPath_; }

private:
    void WaitThenSet(int64_t afterMs);

    std::string folder_;
    std::string fifoPath_;
    int fd_ = -1;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool finished_ = false;
    std::thread thread_;
};

}  // namespace host
