// The thread that reaps workers whose stop gave up on them.

#include "transport/latereaper_posix.h"

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <thread>
#include <vector>

#include "transport/childwait_posix.h"

namespace Qel {
namespace {

constexpr auto kFirstLook = std::chrono::milliseconds(10);
constexpr auto kLongestPause = std::chrono::milliseconds(1000);

struct Orphan {
    pid_t pid;
    int pidfd;
};

class LateReaper {
public:
    LateReaper() = default;
    LateReaper(const LateReaper&) = delete;
    LateReaper& operator=(const LateReaper&) = delete;
    ~LateReaper() {
        {
            std::lock_guard<std::mutex> guard(lock_);
            stopping_ = true;
        }
        wake_.notify_all();
        if (thread_.joinable()) thread_.join();
        for (const Orphan& orphan : orphans_)
            if (orphan.pidfd >= 0) ::close(orphan.pidfd);
    }

    void Adopt(Orphan orphan) {
        std::lock_guard<std::mutex> guard(lock_);
        orphans_.push_back(orphan);
        if (running_) return;
        // A run that ended on its own has nothing left to do but to be joined.
        if (thread_.joinable()) thread_.join();
        running_ = true;
        thread_ = std::thread([this] { Run(); });
    }

    size_t Count() {
        std::lock_guard<std::mutex> guard(lock_);
        return orphans_.size();
    }

private:
    // Looks again and again, less often the longer a worker hangs; a pidfd
    // can't tell "ended" from "reapable" (a traced child), so no poll on it.
    void Run() {
        ::pthread_setname_np(::pthread_self(), "WorkerReaper");
        std::unique_lock<std::mutex> guard(lock_);
        auto pause = kFirstLook;
        while (!stopping_) {
            std::erase_if(orphans_, [](const Orphan& orphan) {
                if (!ReapIfEnded(orphan.pid, orphan.pidfd)) return false;
                if (orphan.pidfd >= 0) ::close(orphan.pidfd);
                return true;
            });
            if (orphans_.empty()) break;
            wake_.wait_for(guard, pause, [this] { return stopping_; });
            pause = std::min(pause * 2, kLongestPause);
        }
        running_ = false;
    }

    std::mutex lock_;
    std::condition_variable wake_;
    std::vector<Orphan> orphans_;
    std::thread thread_;
    bool running_ = false;
    bool stopping_ = false;
};

LateReaper& Reaper() {
    // Process-wide by necessity: the worker outlives the decoder that started it.
    static LateReaper reaper;
    return reaper;
}

}  // namespace

void ReapLater(pid_t pid, int pidfd) { Reaper().Adopt(Orphan{pid, pidfd}); }

size_t WorkersLeftToReap() { return Reaper().Count(); }

}  // namespace Qel
