#include "concurrency/base/tick_counter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

#include "concurrency/base/clock.h"

namespace {

using namespace Orvane::Internal;

std::chrono::nanoseconds Time(std::uint64_t from, std::uint64_t to) {
    return TickCounter::ToTime(static_cast<double>(TickCounter::Between(from, to)));
}

TEST(TickCounter, GoesAsTheMonotonicClockDoes) {
    const std::uint64_t outerBegin = TickCounter::Now();
    const auto begin = MonotonicClock::now();
    const std::uint64_t innerBegin = TickCounter::Now();
    while (MonotonicClock::now() - begin < std::chrono::milliseconds(20)) {
    }
    const std::uint64_t innerEnd = TickCounter::Now();
    const auto time = MonotonicClock::now() - begin;
    const std::uint64_t outerEnd = TickCounter::Now();
    EXPECT_GE(Time(outerBegin, outerEnd), time * 98 / 100);
    EXPECT_LE(Time(innerBegin, innerEnd), time * 102 / 100);
}

TEST(TickCounter, TakesNoTimeForATimeBackwards) {
    EXPECT_EQ(TickCounter::Between(10, 7), 0U);
    EXPECT_EQ(TickCounter::Between(7, 10), 3U);
}

}  // namespace
