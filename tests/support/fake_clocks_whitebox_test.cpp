// The library's clocks in the hands of a test.
#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "concurrency/base/clock.h"
#include "concurrency/base/windows_api.h"
#include "tests/support/fake_monotonic_clock.h"
#include "tests/support/fake_ticks.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/plain_thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

std::chrono::nanoseconds MonotonicNow() {
    return MonotonicClock::now().time_since_epoch();
}

TEST(FakeMonotonicClock, StandsStillUntilItIsMoved) {
    FakeMonotonicClock clock(5s);
    EXPECT_EQ(MonotonicNow(), 5s);
    EXPECT_EQ(MonotonicNow(), 5s);
    clock.Advance(250ms);
    EXPECT_EQ(MonotonicNow(), 5'250ms);
    clock.Set(2s);
    EXPECT_EQ(MonotonicNow(), 2s);
    EXPECT_EQ(clock.Reads(), 4);
}

TEST(FakeMonotonicClock, IsSeenByTheThreadsThatUseItAlone) {
    FakeMonotonicClock clock;
    clock.Set(5s);
    std::chrono::nanoseconds seen{};
    PlainThread([&] {
        FakeMonotonicClock::UseOnThisThread();
        seen = MonotonicNow();
    }).Join();
    EXPECT_EQ(seen, 5s);
    EXPECT_NE(MonotonicNow(), 5s);
    EXPECT_EQ(clock.Reads(), 1);
}

TEST(FakeMonotonicClock, GivesTheClockBack) {
    const auto before = MonotonicNow();
    {
        const FakeMonotonicClock clock(before + 1000h);
    }
    EXPECT_GE(MonotonicNow(), before);
    EXPECT_LT(MonotonicNow(), before + 1000h);
}

TEST(FakeWallClock, GoesWithTheSystemUntilItIsSet) {
    const TimePoint before = WallClock::now();
    FakeWallClock clock;
    EXPECT_LT(WallClock::now() - before, 1000h);
    clock.Set(TimePoint(3h));
    EXPECT_EQ(WallClock::now(), TimePoint(3h));
    EXPECT_EQ(WallClock::now(), TimePoint(3h));
    EXPECT_EQ(clock.Reads(), 3);
}

TEST(FakeWallClock, RunsAheadByWhatItIsAdvanced) {
    FakeWallClock clock;
    const TimePoint before = WallClock::now();
    clock.Advance(1000h);
    clock.Advance(1000h);
    EXPECT_GT(WallClock::now() - before, 1900h);
    EXPECT_LT(WallClock::now() - before, 2900h);
}

TEST(FakeWallClock, StopsAtAMoment) {
    const TimePoint end = WallClock::now() + 1000h;
    FakeWallClock clock;
    clock.StopAt(end);
    EXPECT_LT(WallClock::now(), end);
    clock.Advance(2000h);
    EXPECT_EQ(WallClock::now(), end);
}

TEST(FakeWallClock, GivesTheClockBack) {
    {
        const FakeWallClock clock(TimePoint(3h));
    }
    EXPECT_GT(WallClock::now(), TimePoint(1000h));
}

// Asked as the library asks.
DWORD TicksOfTheLibrary() {
    return ::GetTickCount();
}

TEST(FakeTicks, StandStillUntilTheyAreMovedAndWrapAsTheRealOnesDo) {
    FakeTicks ticks(0xFFFFFFFF);
    std::vector<int> reads;
    ticks.OnRead([&](int number) { reads.push_back(number); });
    EXPECT_EQ(TicksOfTheLibrary(), 0xFFFFFFFF);
    ticks.Advance(3);
    EXPECT_EQ(TicksOfTheLibrary(), 2U);
    EXPECT_EQ(reads, (std::vector{1, 2}));
}

}  // namespace
