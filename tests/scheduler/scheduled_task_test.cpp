#include "concurrency/scheduler/scheduled_task.h"

#include <gtest/gtest.h>

#include <chrono>
#include <utility>

#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"
#include "tests/scheduler/probe_task.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr Duration kTick{1};

Task Nothing() {
    return MakeTask(L"Nothing", [] {});
}

TEST(ScheduledTask, IsDueAtOnceAndOnceWhenDefaultConstructed) {
    ScheduledTask task;

    EXPECT_EQ(task.GetTask(), Task());
    EXPECT_EQ(task.GetStartTime(), k1970);
    EXPECT_TRUE(task.IsExpired());
    EXPECT_FALSE(task.IsRecurrent());
    EXPECT_FALSE(task.Reschedule());
    EXPECT_EQ(task.GetStartTime(), k1970);
}

TEST(ScheduledTask, KeepsItsThreeValuesUnchecked) {
    const Task task = Nothing();
    const ScheduledTask scheduled(task, TimePoint::min(), Duration::min());

    EXPECT_EQ(scheduled.GetTask(), task);
    EXPECT_EQ(scheduled.GetStartTime(), TimePoint::min());
    EXPECT_TRUE(scheduled.IsRecurrent());
}

TEST(ScheduledTask, SharesTheTaskWithItsCopies) {
    ScheduledTask first(Nothing(), Now(), 1s);
    ScheduledTask second(first);
    ScheduledTask third;
    third = first;

    second.Cancel();

    EXPECT_TRUE(first.IsCancelled());
    EXPECT_TRUE(third.IsCancelled());
    EXPECT_EQ(third.GetStartTime(), first.GetStartTime());
}

TEST(ScheduledTask, LeavesAnEmptyTaskWhenMovedFrom) {
    const Task task = Nothing();
    ScheduledTask source(task, Now(), 1s);

    ScheduledTask target(std::move(source));
    EXPECT_EQ(source.GetTask(), Task());  // NOLINT(bugprone-use-after-move): what is left is part of the interface
    source = std::move(target);

    EXPECT_EQ(target.GetTask(), Task());  // NOLINT(bugprone-use-after-move): the same
    EXPECT_EQ(source.GetTask(), task);
}

TEST(ScheduledTask, IsExpiredFromItsStartOn) {
    EXPECT_TRUE(ScheduledTask(Nothing(), Now(), kOnce).IsExpired());
    EXPECT_TRUE(ScheduledTask(Nothing(), TimePoint::min(), kOnce).IsExpired());
    EXPECT_FALSE(ScheduledTask(Nothing(), Now() + 1h, kOnce).IsExpired());
    EXPECT_FALSE(ScheduledTask(Nothing(), TimePoint::max(), kOnce).IsExpired());
}

TEST(ScheduledTask, IsNotRescheduledWhenItRunsOnce) {
    const TimePoint start = Now();
    ScheduledTask task(Nothing(), start, kOnce);

    EXPECT_FALSE(task.Reschedule());
    EXPECT_EQ(task.GetStartTime(), start);
}

TEST(ScheduledTask, IsNotAskedForCancellationWhenItRunsOnce) {
    const Probe probe;
    ScheduledTask task(probe.MakeTask(), Now(), kOnce);

    EXPECT_FALSE(task.Reschedule());

    EXPECT_EQ(probe->askedForCancellation, 0);
}

TEST(ScheduledTask, IsNotRescheduledWhenItIsCancelled) {
    const TimePoint start = Now();
    ScheduledTask task(Nothing(), start, 1s);
    task.Cancel();

    EXPECT_FALSE(task.Reschedule());
    EXPECT_EQ(task.GetStartTime(), start);
}

TEST(ScheduledTask, MovesOnByOneIntervalWhateverTheTimeIsNow) {
    for (const TimePoint start : {k1970, Now(), Now() + 24h}) {
        ScheduledTask task(Nothing(), start, 7s);

        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(task.Reschedule());
        }

        EXPECT_EQ(task.GetStartTime(), start + 21s);
    }
}

TEST(ScheduledTask, MovesIntoThePastByANegativeInterval) {
    const TimePoint start = Now();
    ScheduledTask task(Nothing(), start, -1s);

    EXPECT_TRUE(task.IsRecurrent());
    EXPECT_TRUE(task.Reschedule());
    EXPECT_EQ(task.GetStartTime(), start - 1s);
    EXPECT_TRUE(task.IsExpired());
}

TEST(ScheduledTask, WrapsAtTheEndsOfTime) {
    ScheduledTask task(Nothing(), TimePoint::max(), kTick);

    EXPECT_TRUE(task.Reschedule());
    EXPECT_EQ(task.GetStartTime(), TimePoint::min());
}

TEST(ScheduledTask, IsGreaterOnlyWithALaterStart) {
    const TimePoint start = Now();
    const ScheduledTask early(Nothing(), start, 9s);
    const ScheduledTask equal(Nothing(), start, 1s);
    const ScheduledTask late(Nothing(), start + kTick, kOnce);

    EXPECT_TRUE(late > early);
    EXPECT_FALSE(early > late);
    EXPECT_FALSE(early > equal);
    EXPECT_FALSE(equal > early);
}

TEST(ScheduledTask, WaitsForItsTaskAndEmptiesIt) {
    ScheduledTask scheduled(Nothing(), Now(), kOnce);
    Task task = scheduled.GetTask();
    task();

    scheduled.Wait();

    EXPECT_TRUE(scheduled.IsCancelled());
}

}  // namespace
