#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

#include "transport/exceptions.h"
#include "transport/streams.h"
#include "transport/waitable.h"

namespace {

std::vector<uint8_t> Counting(size_t size) {
    std::vector<uint8_t> bytes(size);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return bytes;
}

// Gives at most `step` bytes per read and records the largest request.
class Trickle : public Qel::streamInMemory {
public:
    Trickle(const std::vector<uint8_t>& bytes, size_t step)
        : Qel::streamInMemory(bytes.data(), bytes.size()), step_(step) {}
    size_t read(void* buffer, size_t count) override {
        largest = std::max(largest, count);
        return Qel::streamInMemory::read(buffer, std::min(count, step_));
    }
    size_t largest = 0;

private:
    size_t step_;
};

TEST(Streams, TwoLevelReadsAndSkips) {
    const auto bytes = Counting(600);
    Qel::streamInMemory skipping(bytes.data(), bytes.size());
    EXPECT_EQ(skipping.skip(0), 0u);
    EXPECT_EQ(skipping.skip(1000), 600u);
    Qel::streamInMemory exact(bytes.data(), bytes.size());
    EXPECT_THROW(exact.skipExact(1000), Qel::invalid_input);

    Trickle trickle(bytes, 1000);
    trickle.skipExact(300);
    EXPECT_LE(trickle.largest, 256u) << "skips go through the small scratch area";
    uint8_t byte = 0;
    trickle.readExact(&byte, 1);
    EXPECT_EQ(byte, bytes[300]);
    EXPECT_EQ(trickle.skipNow(500), 299u);
    EXPECT_THROW(trickle.readExact(&byte, 1), Qel::invalid_input);

    // A short step ends the skip even before the end.
    Trickle slow(bytes, 100);
    EXPECT_EQ(slow.skip(600), 100u);

    Qel::streamInMemory whole(bytes.data(), bytes.size());
    std::vector<uint8_t> copy(600);
    EXPECT_EQ(whole.readWhenReady(copy.data(), 700), 600u);
    EXPECT_EQ(copy, bytes);
}

TEST(Streams, ReadUntilDoneCollectsPiecesAndHonoursTheAborter) {
    const auto bytes = Counting(10);
    Trickle source(bytes, 3);
    auto once = [&](uint8_t* buffer, size_t count) { return source.read(buffer, count); };
    std::vector<uint8_t> got(16, 0xEE);
    EXPECT_EQ(Qel::ReadUntilDone(once, got.data(), 16), 10u);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), got.begin()));
    EXPECT_EQ(got[10], 0xEE);

    Qel::aborter stop;
    Qel::AborterScope scope(stop);
    stop.Set();
    Trickle again(bytes, 3);
    EXPECT_THROW(Qel::ReadUntilDone([&](uint8_t* b, size_t c) { return again.read(b, c); }, got.data(), 4),
                 Qel::user_abort);
}

}  // namespace
