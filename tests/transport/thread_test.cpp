#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "transport/exceptions.h"
#include "transport/thread.h"
#include "transport/waitable.h"

namespace {

using Clock = std::chrono::steady_clock;

// Waits for nothing but the current aborter: returns only by user_abort.
void WaitForAbort() { Qel::WaitAny(nullptr, 0, -1); }

TEST(Thread, RunsNamedWithItsOwnAborterAndSwallowsExceptions) {
    Qel::aborter outer;
    Qel::AborterScope scope(outer);
    Qel::thread worker("StdErrReader-long-name");
    std::string seenName;
    Qel::aborter* seenAborter = nullptr;
    worker.start([&] {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        seenName = name;
        seenAborter = Qel::CurrentAborter();
        throw std::runtime_error("swallowed");
    });
    worker.join();
    EXPECT_FALSE(worker.running());
    EXPECT_EQ(seenName, "StdErrReader-lo");
    ASSERT_NE(worker.ownAborter(), nullptr);
    EXPECT_EQ(seenAborter, worker.ownAborter());
    EXPECT_EQ(Qel::CurrentAborter(), &outer);

    // Without the flags there is no aborter, and the creator's isn't inherited.
    Qel::thread plain("", 0);
    seenAborter = &outer;
    plain.start([&] { seenAborter = Qel::CurrentAborter(); });
    plain.join();
    EXPECT_EQ(plain.ownAborter(), nullptr);
    EXPECT_EQ(seenAborter, nullptr);
}

TEST(Thread, RestartAndDestroyEndABlockedThread) {
    std::atomic<int> aborted{0};
    std::atomic<int> entered{0};
    std::atomic<bool> secondSawClearAborter{false};
    auto blocked = [&] {
        ++entered;
        try {
            WaitForAbort();
        } catch (const Qel::user_abort&) {
            ++aborted;
            throw;
        }
    };
    auto worker = std::make_unique<Qel::thread>("blocked");
    worker->start(blocked);
    while (entered.load() == 0) std::this_thread::yield();
    // A second start ends the first run, then gives the new one a reset aborter.
    worker->start([&] {
        secondSawClearAborter = !Qel::CurrentAborter()->IsSet();
        blocked();
    });
    EXPECT_EQ(aborted.load(), 1);
    while (entered.load() == 1) std::this_thread::yield();
    auto start = Clock::now();
    worker.reset();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(aborted.load(), 2);
    EXPECT_TRUE(secondSawClearAborter.load());
}

TEST(Thread, RunsAtItsCreatorsPriority) {
    int creator = 0;
    int created = 1;
    // A lower priority is always allowed; do it in a thread of its own.
    std::thread helper([&] {
        ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), 5);
        creator = Qel::CurrentThreadPriority();
        Qel::thread worker("prio");
        worker.start([&] { created = Qel::CurrentThreadPriority(); });
        worker.join();
    });
    helper.join();
    EXPECT_EQ(creator, -5);
    EXPECT_EQ(created, creator);
}

}  // namespace
