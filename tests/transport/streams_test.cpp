// The transport pieces that need no worker: waits, aborters, skips, the pipe
// streams of the worker's channels on the parent's side (a blocked reader
// ended by its thread: tests/codecs/stderrqueue_test.cpp), the worker's UTF-8.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "streampipe.h"
#include "transport/exceptions.h"
#include "transport/pipestream.h"
#include "transport/streams.h"
#include "transport/waitable.h"
#include "transport/worker.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

int64_t MsSince(Clock::time_point start) { return (Clock::now() - start) / 1ms; }

TEST(WaitAny, LimitsSignalsAndTheCurrentAborter) {
    Qel::waitable a, b;
    Qel::waitable* both[] = {&a, &b};
    std::vector<Qel::waitable> many(20);   // beyond the handles that fit without the heap
    std::vector<Qel::waitable*> list;
    for (auto& w : many) list.push_back(&w);
    // name, the list and its count, the object set before, the limit, the result, the time it takes.
    const struct { const char* name; Qel::waitable* const* list; int count; Qel::waitable* set; double seconds; int result;
                   int64_t minMs, maxMs; } rows[] = {
        {"none set, no wait", both, 2, nullptr, 0, -1, 0, 50},
        {"none set, time limit", both, 2, nullptr, 0.1, -1, 95, 1000},
        {"nothing to wait for: a sleep", nullptr, 0, nullptr, 0.25, -1, 245, 1000},
        {"second set", both, 2, &b, 0, 1, 0, 50},
        {"manual reset: still set, no limit", both, 2, nullptr, -1, 1, 0, 50},
        {"19th of 20", list.data(), 20, &many[18], 0, 18, 0, 50},
    };
    for (const auto& row : rows) {
        if (row.set) row.set->Set();
        const auto start = Clock::now();
        EXPECT_EQ(Qel::WaitAny(row.list, row.count, row.seconds), row.result) << row.name;
        EXPECT_GE(MsSince(start), row.minMs) << row.name;
        EXPECT_LT(MsSince(start), row.maxMs) << row.name;
    }

    // Aborter scopes nest; the current aborter reaches every wait, before the objects.
    ASSERT_EQ(Qel::CurrentAborter(), nullptr);
    Qel::aborter outer, inner;
    {
        Qel::AborterScope first(outer);
        EXPECT_EQ(Qel::CurrentAborter(), &outer);
        {
            Qel::AborterScope second(inner);
            EXPECT_EQ(Qel::CurrentAborter(), &inner);
        }
        EXPECT_EQ(Qel::CurrentAborter(), &outer);
        Qel::waitable ready;
        ready.Set();
        Qel::waitable* list[] = {&ready};
        outer.Set();
        EXPECT_THROW(Qel::WaitAny(list, 1, 0), Qel::user_abort);
        EXPECT_THROW(Qel::WaitAny(nullptr, 0, -1), Qel::user_abort);
        EXPECT_THROW(Qel::CheckAbort(), Qel::user_abort);
    }
    EXPECT_EQ(Qel::CurrentAborter(), nullptr);
}

// Gives at most `step` bytes per read and records the largest request.
struct Trickle : Qel::streamInMemory {
    Trickle(const std::string& bytes, size_t step) : Qel::streamInMemory(bytes.data(), bytes.size()), step(step) {}
    size_t read(void* buffer, size_t count) override {
        largest = std::max(largest, count);
        return Qel::streamInMemory::read(buffer, std::min(count, step));
    }
    size_t step, largest = 0;
};

TEST(Streams, SkipsOfExactSizes) {
    const std::string bytes(600, 'x');
    Trickle trickle(bytes, 1000), slow(bytes, 100);
    trickle.skipExact(300);
    EXPECT_LE(trickle.largest, 256u) << "skips go through the small scratch area";
    EXPECT_THROW(trickle.skipExact(301), Qel::invalid_input);
    EXPECT_EQ(slow.skip(600), 100u) << "a short step ends the skip even before the end";
}

TEST(FromUtf8, WorkerConversionRules) {
    const std::pair<std::string, std::u16string> cases[] = {
        {"abc", u"abc"}, {std::string("ab\0cd", 5), u"ab"}, {"\xC3\xA9\xE2\x82\xAC", u"\u00E9\u20AC"},
        // One unit per character: U+1F600 keeps its low 16 bits, no surrogates.
        {"\xF0\x9F\x98\x80!", std::u16string({char16_t(0xF600), u'!'})},
        // Bad input ends the text there, silently (the plug-in only hands it
        // what it made from UTF-16 itself).
        {"a\x80z", u"a"}, {"a\xC3", u"a"}, {"a\xE0\x80\x80z", u"a"},
    };
    for (const auto& [bytes, expected] : cases) EXPECT_EQ(FromUtf8Units(bytes.data(), bytes.size()), expected) << bytes;
    EXPECT_EQ(FromUtf8Units("abc", 2), u"ab");
    EXPECT_EQ(FromUtf8Units(nullptr, 4), u"");
    EXPECT_EQ(FromUtf8("x\xC3\xA9y", 4).View(), u"x\u00E9y");
}

TEST(PipeStream, ReadsWhatThereIsThenTheEndAndStopsOnASetAborter) {
    StreamPipe pipe;
    pipe.out.write("hellox", 6);
    char buffer[100] = {};
    EXPECT_EQ(pipe.in.read(buffer, 5), 5u);
    EXPECT_EQ(std::string(buffer, 5), "hello");
    pipe.out.write("yz", 2);
    EXPECT_EQ(pipe.in.readSome(buffer, sizeof buffer), 3u) << "what is there, without waiting for more";
    EXPECT_EQ(std::string(buffer, 3), "xyz");
    pipe.out.write("vx", 2);
    {
        Qel::aborter stop;
        Qel::AborterScope scope(stop);
        stop.Set();
        EXPECT_EQ(pipe.in.read(buffer, 0), 0u);   // a count of zero never waits
        // Data that is there comes first; a read that would wait, and a skip, see the aborter.
        EXPECT_EQ(pipe.in.read(buffer, 1), 1u);
        EXPECT_THROW(pipe.in.skip(1), Qel::user_abort);
        EXPECT_EQ(pipe.in.readSome(buffer + 1, 1), 1u);
        EXPECT_EQ(std::string(buffer, 2), "vx");
        EXPECT_THROW(pipe.in.read(buffer, 1), Qel::user_abort);
        EXPECT_THROW(pipe.out.write("y", 1), Qel::user_abort);
    }
    // A silent pipe times out.
    pipe.in.timeoutSeconds = 0.5;
    const auto start = Clock::now();
    EXPECT_THROW(pipe.in.read(buffer, sizeof buffer), Qel::network_error_timeout);
    EXPECT_GE(MsSince(start), 450);
    EXPECT_LT(MsSince(start), 1500);

    StreamPipe ending;
    ending.out.write("x", 1);
    ending.CloseWriteEnd();
    EXPECT_EQ(ending.in.read(buffer, sizeof buffer), 1u);
    EXPECT_EQ(buffer[0], 'x');
    EXPECT_EQ(ending.in.read(buffer, sizeof buffer), 0u);
    EXPECT_THROW(Qel::streamInOverlapped().read(buffer, 1), Qel::file_access_error);
}

}  // namespace
