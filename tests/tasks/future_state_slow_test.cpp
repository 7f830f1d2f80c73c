// What a run that does not confirm its cancellation has 30 s for, in real time.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "concurrency/base/time.h"
#include "tests/support/child_process.h"
#include "tests/support/eventually.h"
#include "tests/support/plain_thread.h"
#include "tests/support/stopwatch.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

const std::string kLastWords = " [FutureState] Thread did not respond to cancellation";

class UnresponsiveRunTest : public testing::TestWithParam<const char*> {};

TEST_P(UnresponsiveRunTest, EndsTheProcessAfter30SecondsWithOneRecord) {
    const ChildResult result = RunChild("future_state_slow_test_child", {GetParam()});

    EXPECT_EQ(result.exitCode, kTerminated);
    EXPECT_EQ(result.standardOutput, "terminate handler");
    EXPECT_GE(result.elapsed, 30s);
    EXPECT_LT(result.elapsed, 90s);
    EXPECT_TRUE(result.LastRecord().ends_with(kLastWords)) << result.LastRecord();
    EXPECT_NE(result.LastRecord().find("Z 8 16 "), std::string::npos) << result.LastRecord();
    EXPECT_EQ(std::ranges::count_if(result.log, [](const std::string& line) { return line.ends_with(kLastWords); }), 1);
}

INSTANTIATE_TEST_SUITE_P(Waits, UnresponsiveRunTest, testing::Values("Task::Wait", "FutureState::Wait", "GetValue"));

TEST(FutureWaitSlow, RunThatConfirmsWithinTheLimitDoesNotEndTheProcess) {
    const FuturePointer future = AttachedFutureIn(State::Cancelling);
    PlainThread waiter([&] { future->Wait(); });
    std::this_thread::sleep_for(20s);
    EXPECT_FALSE(waiter.HasEnded());

    future->ConfirmCancel();
    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
}

TEST(FutureWaitSlow, WaiterThatCameBeforeTheRequestHasNoLimit) {
    const FuturePointer future = AttachedFutureIn(State::Busy);
    SleepingWaiter waiter([&] { future->Wait(); }, *future);
    future->RequestCancel();
    std::this_thread::sleep_for(33s);
    EXPECT_FALSE(waiter.HasEnded());

    future->ConfirmCancel();
    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
}

TEST(FutureTimedWaitSlow, HasNoLimitButItsDeadline) {
    const FuturePointer future = AttachedFutureIn(State::Cancelling);
    const Stopwatch stopwatch;
    const auto now = std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());

    EXPECT_FALSE(future->TimedWait(now + 33s));
    EXPECT_GE(stopwatch.Elapsed(), 32s);
    EXPECT_EQ(StateOf(*future), State::Cancelling);
}

}  // namespace
