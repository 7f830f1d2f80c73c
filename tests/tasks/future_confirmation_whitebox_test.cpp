// The 30 s that a run has to confirm its cancellation while somebody waits for it.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "tests/support/child_process.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_monotonic_clock.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/clocked_wait.h"
#include "tests/tasks/future_fixture.h"
#include "tests/tasks/future_state_peer.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

const std::string kLastWords = " [FutureState] Thread did not respond to cancellation";

class UnresponsiveRunTest : public testing::TestWithParam<const char*> {};

// Not a millisecond earlier.
TEST_P(UnresponsiveRunTest, EndsTheProcessAfter30SecondsWithOneRecord) {
    const ChildResult result = RunChild("future_confirmation_whitebox_test_child", {GetParam()});

    EXPECT_EQ(result.exitCode, kTerminated);
    EXPECT_EQ(result.standardOutput, "still waits, terminate handler");
    EXPECT_TRUE(result.LastRecord().ends_with(kLastWords)) << result.LastRecord();
    EXPECT_NE(result.LastRecord().find("Z 8 16 "), std::string::npos) << result.LastRecord();
    EXPECT_EQ(std::ranges::count_if(result.log, [](const std::string& line) { return line.ends_with(kLastWords); }), 1);
}

INSTANTIATE_TEST_SUITE_P(Waits, UnresponsiveRunTest, testing::Values("Task::Wait", "FutureState::Wait", "GetValue"));

TEST(FutureWait, RunThatConfirmsAtTheLastMomentDoesNotEndTheProcess) {
    const FuturePointer future = AttachedFutureIn(State::Cancelling);
    ClockedWait waiter(*future, [&] { future->Wait(); });
    waiter.Advance(30s - 1ms);
    EXPECT_FALSE(waiter.HasEnded());

    future->ConfirmCancel();
    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
}

// Moves the clock and wakes the waiters, each of which has not looked at it yet, or sleeps.
void Advance(FakeMonotonicClock& clock, std::chrono::nanoseconds by, Future& future) {
    const std::lock_guard lock(FutureStatePeer::MutexOf(future));
    clock.Advance(by);
    FutureStatePeer::ConditionOf(future).notify_all();
}

TEST(FutureWait, ThatCameBeforeTheRequestHasNoLimit) {
    FakeMonotonicClock clock;
    const FuturePointer future = AttachedFutureIn(State::Busy);
    SleepingWaiter waiter(
        [&] {
            FakeMonotonicClock::UseOnThisThread();
            future->Wait();
        },
        *future);
    future->RequestCancel();
    for (int day = 0; day < 2; ++day) {
        Advance(clock, 24h, *future);
        EXPECT_TRUE(StillWaits(waiter));
    }
    future->ConfirmCancel();
    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
}

TEST(FutureTimedWait, OnARunThatDoesNotRespondHasNoLimitButItsDeadline) {
    const TimePoint start = std::chrono::sys_days(std::chrono::December / 14 / 2012);
    FakeWallClock wallClock(start);
    FakeMonotonicClock clock;
    const FuturePointer future = AttachedFutureIn(State::Cancelling);
    PlainThread waiter([&] {
        FakeMonotonicClock::UseOnThisThread();
        EXPECT_FALSE(future->TimedWait(start + 48h));
    });
    ASSERT_TRUE(Eventually([&] { return wallClock.Reads() > 0; }));
    for (int day = 0; day < 2; ++day) {
        EXPECT_TRUE(StillWaits(waiter));
        wallClock.Set(start + (day + 1) * 24h);
        Advance(clock, 24h, *future);
    }
    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
    EXPECT_EQ(StateOf(*future), State::Cancelling);
}

}  // namespace
