// Memory runs out at any point of scheduling a task and of keeping track of it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/schedule.h"
#include "tests/faults/every_allocation.h"
#include "tests/scheduler/moments.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

void ExpectThatItIsInserted(Attempt& attempt) {
    std::atomic<int> runs = 0;
    Task task = MakeTask(L"due", [&runs] { ++runs; });
    const auto insert = [&] { GlobalScheduler::Insert(ScheduledTask(task, k1970, kOnce)); };
    if (!attempt.Succeeds(insert)) {
        EXPECT_FALSE(task.IsCancelled());
        EXPECT_EQ(runs, 0);
        insert();
    }
    task.Wait();
    EXPECT_EQ(runs, 1);
}

TEST(SchedulerWithoutMemory, IsMadeByTheNextCall) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        const ConcurrencyLifetime lifetime;
        ExpectThatItIsInserted(attempt);
    });
    EXPECT_GT(failures, 0);
}

TEST(SchedulerWithoutMemory, TakesTheTaskFromTheNextCall) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        const ConcurrencyLifetime lifetime;
        // What is in the queue has filled it up: one more needs room.
        Tracker later = Schedule(L"later", 1h, 0s, [] {});
        ExpectThatItIsInserted(attempt);
    });
    EXPECT_GT(failures, 0);
}

TEST(ScheduleWithoutMemory, SchedulesNothing) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        const ConcurrencyLifetime lifetime;
        std::atomic<int> runs = 0;
        std::optional<Tracker> tracker;
        const auto schedule = [&] { tracker = Schedule(L"job", 0s, 0s, [&runs] { ++runs; }); };
        if (!attempt.Succeeds(schedule)) {
            EXPECT_FALSE(tracker);
            EXPECT_EQ(runs, 0);
            schedule();
        }
        tracker->Wait();
        EXPECT_EQ(runs, 1);
    });
    EXPECT_GT(failures, 0);
}

TEST(TrackerWithoutMemory, IsCopiedCancelledAndDropped) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        int runs = 0;
        Task task = MakeTask(L"tracked", [&runs] { ++runs; });
        std::optional<Tracker> tracker(std::in_place);
        tracker->SetTask(ScheduledTask(task, k1970, 1h));
        EXPECT_TRUE(attempt.Succeeds([&] {
            Tracker copy = *tracker;
            copy.Cancel();
            tracker.reset();
        }));
        EXPECT_TRUE(task.IsCancelled());
        task();
        EXPECT_EQ(runs, 0);
    });
    EXPECT_EQ(failures, 0);
}

TEST(TrackerWithoutMemory, IsDroppedAfterAWait) {
    ForEveryAllocation([](Attempt& attempt) {
        std::optional<Tracker> tracker(std::in_place);
        Task task = MakeTask(L"tracked", [] {});
        tracker->SetTask(ScheduledTask(task, k1970, kOnce));
        task();
        tracker->Wait();
        EXPECT_TRUE(attempt.Succeeds([&] { tracker.reset(); }));
    });
}

TEST(LifetimeWithoutMemory, EndsThoughATaskInTheScheduleHasBeenWaitedFor) {
    ForEveryAllocation([](Attempt& attempt) {
        ConcurrencyInitialize();
        Task task = MakeTask(L"later", [] {});
        GlobalScheduler::Insert(ScheduledTask(task, k1970 + std::chrono::hours(24 * 365 * 200), kOnce));
        task();
        task.Wait();
        EXPECT_TRUE(attempt.Succeeds([] { ConcurrencyUninitialize(); }));
        EXPECT_FALSE(IsConcurrencyInitialized());
    });
}

TEST(ScheduledTaskWithoutMemory, MovesItsStartOn) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        ScheduledTask task(MakeTask(L"recurrent", [] {}), k1970, 1h);
        EXPECT_TRUE(attempt.Succeeds([&] { EXPECT_TRUE(task.Reschedule()); }));
        EXPECT_EQ(task.GetStartTime(), k1970 + 1h);
    });
    EXPECT_EQ(failures, 0);
}

// The job has run; only the runs that follow are lost, and the log says so.
TEST(TrackerImplWithoutMemory, ReportsThatItsTaskCannotRunAgain) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        const RecordedReports reports;
        const ConcurrencyLifetime lifetime;
        int runs = 0;
        TrackerImpl tracker;
        Task task = MakeTask(L"recurrent", [&] {
            const std::function<void()> work = [&runs] { ++runs; };
            EXPECT_TRUE(attempt.Succeeds([&] { tracker.UpdateWrapper(work); }));
        });
        tracker.SetTask(ScheduledTask(task, k1970, 1h));
        const auto before = task.GetWrapper();
        task();
        EXPECT_EQ(runs, 1);
        EXPECT_EQ(task.GetWrapper() == before, attempt.HasFailed());
        EXPECT_EQ(reports.Count(L"ScopedReset.dtor"), attempt.HasFailed() ? 2U : 0U);
        EXPECT_FALSE(task.IsCancelled());
    });
    EXPECT_GT(failures, 0);
}

}  // namespace
