#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "transport/exceptions.h"
#include "transport/waitable.h"

namespace {

using Clock = std::chrono::steady_clock;

int64_t MsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

struct Picky : Qel::waitable {
    int confirmations = 0;
    int needed = 0;   // 0: never confirms
    bool confirm() override { return needed != 0 && ++confirmations >= needed; }
};

TEST(WaitAny, LimitsAndSignals) {
    Qel::waitable a, b;
    Qel::waitable* both[] = {&a, &b};
    auto start = Clock::now();
    EXPECT_EQ(Qel::WaitAny(both, 2, 0), -1);
    EXPECT_LT(MsSince(start), 50);

    b.Set();
    EXPECT_EQ(Qel::WaitAny(both, 2, 0), 1);
    EXPECT_EQ(Qel::WaitAny(both, 2, -1), 1) << "a manual-reset signal stays set";
    b.Reset();
    EXPECT_FALSE(b.IsSet());

    start = Clock::now();
    EXPECT_EQ(Qel::WaitAny(both, 2, 0.1), -1);
    EXPECT_GE(MsSince(start), 95);

    // Nothing to wait for at all: a plain sleep.
    start = Clock::now();
    EXPECT_EQ(Qel::WaitAny(nullptr, 0, 0.25), -1);
    EXPECT_GE(MsSince(start), 245);
    EXPECT_LT(MsSince(start), 1000);

    // Beyond the handles that fit without the heap.
    std::vector<Qel::waitable> many(20);
    std::vector<Qel::waitable*> list;
    for (auto& w : many) list.push_back(&w);
    many[18].Set();
    EXPECT_EQ(Qel::WaitAny(list.data(), 20, 0), 18);
}

TEST(WaitAny, ConfirmationDecides) {
    Picky picky;
    picky.needed = 3;
    picky.Set();
    Qel::waitable* one[] = {&picky};
    EXPECT_EQ(Qel::WaitAny(one, 1, 1.0), 0);
    EXPECT_EQ(picky.confirmations, 3);

    // A signal that is never confirmed must not hold the wait past its limit.
    Picky never;
    never.Set();
    Qel::waitable* other[] = {&never};
    auto start = Clock::now();
    EXPECT_EQ(Qel::WaitAny(other, 1, 0.1), -1);
    EXPECT_LT(MsSince(start), 1000);
}

TEST(AborterScope, EnterRestoreAndAbort) {
    ASSERT_EQ(Qel::CurrentAborter(), nullptr);
    Qel::aborter outer, inner, tripped;
    {
        Qel::AborterScope first(outer);
        EXPECT_EQ(Qel::CurrentAborter(), &outer);
        {
            Qel::AborterScope second(inner);
            EXPECT_EQ(Qel::CurrentAborter(), &inner);
            tripped.Set();
            Qel::AborterScope third;
            EXPECT_THROW(third.Enter(tripped), Qel::user_abort);
            EXPECT_EQ(Qel::CurrentAborter(), &inner) << "a failed Enter leaves the slot";
        }
        EXPECT_EQ(Qel::CurrentAborter(), &outer);

        // The current aborter reaches every wait, before the objects.
        Qel::waitable ready;
        ready.Set();
        Qel::waitable* list[] = {&ready};
        EXPECT_EQ(Qel::WaitAny(list, 1, 0), 0);
        EXPECT_NO_THROW(Qel::CheckAbort());
        outer.Set();
        EXPECT_THROW(Qel::WaitAny(list, 1, 0), Qel::user_abort);
        EXPECT_THROW(Qel::WaitAny(nullptr, 0, -1), Qel::user_abort);
        EXPECT_THROW(Qel::CheckAbort(), Qel::user_abort);
    }
    EXPECT_EQ(Qel::CurrentAborter(), nullptr);

    // A scope that was never entered leaves the slot alone.
    {
        Qel::AborterScope unused;
        Qel::SetCurrentAborter(&inner);
    }
    EXPECT_EQ(Qel::CurrentAborter(), &inner);
    Qel::SetCurrentAborter(nullptr);
}

}  // namespace
