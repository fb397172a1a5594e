#pragma once
// --quit-after-ms: fdhost makes a quit event of its own, hands its name to
// the decoder, and sets the event from a helper thread when the time is up.
// Gone with the scope: thread joined, event closed. Seam: on Linux the event
// is a FIFO in a folder of its own (set = write one byte), removed at the
// end; on Windows a named Win32 event.

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

    const std::string& EventName() const { return name_; }

private:
    void WaitThenSet(int64_t afterMs);
    // The platform's part: make, set and remove the event.
    void MakeEvent();
    void SignalEvent();
    void RemoveEvent();

    std::string folder_;                // Linux: the FIFO's folder
    std::string name_;
    intptr_t handle_ = -1;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool finished_ = false;
    std::thread thread_;
};

}  // namespace host
