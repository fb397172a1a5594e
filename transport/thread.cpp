// Qel::thread: start, the thread's body around the caller's function, join.

#include "transport/thread.h"

#include <utility>

#include "transport/exceptions.h"

namespace Qel {
namespace {

void RunBody(const std::string& name, aborter* own, const std::function<void()>& function) {
    if (!name.empty()) NameCurrentThread(name);
    AborterScope scope;
    try {
        // An aborter set before the thread got going ends it here, unrun.
        if (own) scope.Enter(*own);
        function();
    } catch (...) {
        // A thread ends silently; what it failed at shows in what it leaves.
    }
}

}  // namespace

thread::thread(std::string name, unsigned flags) : name_(std::move(name)), flags_(flags) {}

thread::~thread() {
    if ((flags_ & kAbortOnDestroy) && aborter_) aborter_->Set();
    join();
}

void thread::start(std::function<void()> function, int priority) {
    if (aborter_) aborter_->Set();
    join();
    if (flags_ & kMakeAborter) {
        if (aborter_) {
            aborter_->Reset();
        } else {
            aborter_.emplace();
        }
    } else {
        aborter_.reset();
    }
    aborter* own = ownAborter();
    handle_ = StartPlatformThread(
        [function = std::move(function), own, name = name_] { RunBody(name, own, function); },
        priority);
}

void thread::join() { JoinPlatformThread(std::move(handle_)); }

}  // namespace Qel
