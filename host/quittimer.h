#pragma once
// fdhost's quit event: made, handed by name to the decoder, and set from a
// helper thread when --quit-after-ms is up, or by Ctrl-C (SIGINT, SIGTERM),
// so that an interrupted command ends through the plug-in's own cancel and
// fdhost can clean up. Gone with the scope: thread joined, interrupt handler
// restored, event closed. Seam: on Linux the event is a FIFO in a folder of
// its own (set = write one byte), removed at the end; on Windows a named
// Win32 event.

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "host/plugin.h"

namespace host {

class QuitTimer {
public:
    // `afterMs` below 0: no timer, only the interrupt. Throws HostError when
    // the event can't be made or the decoder refuses it.
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
    void CatchInterrupt();
    void ReleaseInterrupt();

    std::string folder_;                // Linux: the FIFO's folder
    std::string name_;
    intptr_t handle_ = -1;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool finished_ = false;
    std::thread thread_;
};

}  // namespace host
