#pragma once
// A joinable thread with a name and, optionally, an aborter of its own that
// is the thread's current aborter for its whole life. Exceptions that leave
// the function are swallowed.

#include <functional>
#include <optional>
#include <string>

#include "transport/threadhandle.h"
#include "transport/waitable.h"

namespace Qel {

class thread {
public:
    enum : unsigned { kMakeAborter = 1, kAbortOnDestroy = 2 };

    explicit thread(std::string name = {}, unsigned flags = kMakeAborter | kAbortOnDestroy);
    thread(const thread&) = delete;
    thread& operator=(const thread&) = delete;
    virtual ~thread();

    // Runs `function` at `priority` (the platform's numbers; see CurrentThreadPriority).
    void start(std::function<void()> function, int priority);
    void start(std::function<void()> function) { start(std::move(function), CurrentThreadPriority()); }
    void join();
    bool running() const { return handle_ != nullptr; }
    aborter* ownAborter() { return aborter_ ? &*aborter_ : nullptr; }
    const std::string& name() const { return name_; }

private:
    std::string name_;
    ThreadHandlePtr handle_;           // platform thread until joined
    std::optional<aborter> aborter_;
    unsigned flags_;
};

}  // namespace Qel
