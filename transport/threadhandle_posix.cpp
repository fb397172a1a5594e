// Threads on Linux. The nice value is per thread here, so "priority" is the
// negated nice value: a new thread starts at its creator's, and a join lends
// the joiner's when the joined thread's is lower (where the system allows it).

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "transport/exceptions.h"
#include "transport/threadhandle.h"

namespace Qel {

struct ThreadHandle {
    std::thread thread;
    // `tid` may be used only while `finished` is false under `lock`: a thread
    // that has ended can have its id taken by another.
    std::mutex lock;
    pid_t tid = 0;
    bool finished = false;
};

namespace {

int PriorityOf(pid_t tid) {
    errno = 0;
    int nice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
    if (nice == -1 && errno != 0) return 0;
    return -nice;
}

void SetPriorityOf(pid_t tid, int priority) {
    // Raising needs privileges that a plug-in usually lacks; then it stays as is.
    (void)::setpriority(PRIO_PROCESS, static_cast<id_t>(tid), -priority);
}

void RunPlatformThread(ThreadHandle* handle, const std::function<void()>& body, int priority) {
    const pid_t self = ::gettid();
    {
        std::lock_guard<std::mutex> guard(handle->lock);
        handle->tid = self;
    }
    if (PriorityOf(self) != priority) SetPriorityOf(self, priority);
    try {
        body();
    } catch (...) {
        // The portable layer swallows everything already; this only keeps a
        // stray exception from ending the process.
    }
    std::lock_guard<std::mutex> guard(handle->lock);
    handle->finished = true;
}

void LendPriority(ThreadHandle& handle) {
    std::lock_guard<std::mutex> guard(handle.lock);
    if (handle.finished || handle.tid == 0) return;
    const int mine = CurrentThreadPriority();
    if (PriorityOf(handle.tid) < mine) SetPriorityOf(handle.tid, mine);
}

}  // namespace

void ThreadHandleDeleter::operator()(ThreadHandle* handle) const {
    std::unique_ptr<ThreadHandle> owned(handle);
    if (owned->thread.joinable()) owned->thread.join();
}

int CurrentThreadPriority() { return PriorityOf(::gettid()); }

ThreadHandlePtr StartPlatformThread(std::function<void()> body, int priority) {
    ThreadHandlePtr handle(std::make_unique<ThreadHandle>().release());
    ThreadHandle* raw = handle.get();
    try {
        raw->thread = std::thread([raw, body = std::move(body), priority] {
            RunPlatformThread(raw, body, priority);
        });
    } catch (const std::system_error&) {
        throw bug_check();
    }
    return handle;
}

void JoinPlatformThread(ThreadHandlePtr handle) {
    if (!handle) return;
    LendPriority(*handle);
    handle.reset();
}

void NameCurrentThread(const std::string& utf8Name) {
    // The kernel keeps 15 bytes; cut before a character that would not fit whole.
    size_t length = utf8Name.size();
    if (length > 15) {
        length = 15;
        while (length > 0 && (static_cast<unsigned char>(utf8Name[length]) & 0xC0) == 0x80) --length;
    }
    std::string name = utf8Name.substr(0, length);
    (void)::pthread_setname_np(::pthread_self(), name.c_str());
}

}  // namespace Qel
