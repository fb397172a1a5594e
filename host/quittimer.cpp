#include "host/quittimer.h"

#include <chrono>

#include "host/errors.h"
#include "host/text.h"

namespace host {

QuitTimer::QuitTimer(const Decoder& decoder, int64_t afterMs) {
    MakeEvent();
    const std::u16string name = Utf8ToUtf16(name_);
    DecoderParam param{};
    param.text = name.c_str();
    if (decoder.Set(u"EventQuit", param) == 0) {
        RemoveEvent();
        throw HostError("the plug-in refused the quit event " + name_);
    }
    CatchInterrupt();
    if (afterMs >= 0) thread_ = std::thread([this, afterMs] { WaitThenSet(afterMs); });
}

QuitTimer::~QuitTimer() {
    {
        std::lock_guard<std::mutex> hold(mutex_);
        finished_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
    ReleaseInterrupt();
    RemoveEvent();
}

void QuitTimer::WaitThenSet(int64_t afterMs) {
    std::unique_lock<std::mutex> hold(mutex_);
    if (wake_.wait_for(hold, std::chrono::milliseconds(afterMs), [this] { return finished_; })) return;
    SignalEvent();
}

}  // namespace host
