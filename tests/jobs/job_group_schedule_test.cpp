// Schedules of a group: their runs are jobs of the group, and the group ends them.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>

#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/failure_handler.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/blocked.h"
#include "tests/jobs/group_errors.h"
#include "tests/jobs/group_scene.h"
#include "tests/jobs/turnstile.h"
#include "tests/scheduler/moments.h"
#include "tests/scheduler/wake_scheduler.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_ticks.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(JobGroupSchedule, WithoutAnIntervalRunsOnce) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> runs = 0;
    JobGroup group(L"group");
    group.Schedule(L"once", 0s, 0s, [&runs] { ++runs; });
    group.Wait();
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(group.Counts().done, 1U);
    EXPECT_EQ(group.begin()->name, L"once");
}

TEST(JobGroupSchedule, WithAnIntervalRunsUntilTheGroupIsAsked) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> runs = 0;
    JobGroup group(L"group");
    group.Schedule(L"again", 0s, 2ms, [&runs] { ++runs; });
    EXPECT_TRUE(Eventually([&] { return runs >= 3; }));
    EXPECT_FALSE(group.WaitFor(0s));
    group.Cancel();
    WaitForTheEndOf(group);
    const int last = runs;
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(runs, last);
}

TEST(JobGroupSchedule, CountsAsLeftUntilItIsDue) {
    FakeWallClock clock(Now());
    const ConcurrencyLifetime lifetime;
    bool ran = false;
    JobGroup group(L"group");
    group.Schedule(L"later", Now() + 1h, 0s, [&ran] { ran = true; });
    EXPECT_FALSE(group.WaitFor(10ms));
    EXPECT_EQ(group.Counts().waiting, 0U);
    clock.Set(Now() + 2h);
    WakeScheduler();
    group.Wait();
    EXPECT_TRUE(ran);
}

TEST(JobGroupSchedule, EndsAtOnceWithTheGroupThoughItIsDueMuchLater) {
    const ConcurrencyLifetime lifetime;
    const auto captured = std::make_shared<int>(1);
    {
        JobGroup group(L"group");
        group.Schedule(L"once", 1h, 0s, [captured] {});
        group.Schedule(L"again", 1h, 1h, [captured] {});
        group.Cancel();
        EXPECT_TRUE(group.WaitFor(kPatience));
        group.Schedule(L"too late", 0s, 0s, [captured] {});
        group.Wait();
    }
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(JobGroupSchedule, IsGoneWithTheGroup) {
    const ConcurrencyLifetime lifetime;
    const auto captured = std::make_shared<int>(1);
    std::atomic<int> runs = 0;
    {
        JobGroup group(L"group");
        group.Schedule(L"again", 0s, 1ms, [captured, &runs] { ++runs; });
        EXPECT_TRUE(Eventually([&] { return runs >= 2; }));
    }
    EXPECT_TRUE(Eventually([&] { return captured.use_count() == 1; }));
}

TEST(JobGroupSchedule, WaitsForItsPlaceInTheBound) {
    std::atomic<bool> ran = false;
    GroupScene scene(1);
    scene.group.Run(L"held", scene.Held());
    scene.group.Schedule(L"due", 0s, 0s, [&ran] { ran = true; });
    EXPECT_TRUE(Eventually([&] { return scene.group.Counts().waiting == 1; }));
    std::this_thread::sleep_for(10ms);
    EXPECT_FALSE(ran);
    scene.turnstile.LetAllGo();
    scene.group.Wait();
    EXPECT_TRUE(ran);
}

TEST(JobGroupSchedule, SkipsARunWhileTheOneBeforeIsUnderWay) {
    const ConcurrencyLifetime lifetime;
    const RecordedReports reports;
    Turnstile turnstile;
    JobGroup group(L"group", 4);
    const OpensAtEnd end(turnstile);
    group.Schedule(L"again", 0s, 1ms, [&turnstile] { turnstile.Pass(); });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    EXPECT_TRUE(reports.WaitFor(L"Concurrency.Job", L"Job [%s] skips a run: the one before has not ended", 2));
    EXPECT_EQ(turnstile.Entered(), 1);
    turnstile.LetOneGo();
    EXPECT_TRUE(Eventually([&] { return turnstile.Entered() == 2; }));
    group.Cancel();
    turnstile.LetAllGo();
    EXPECT_EQ(turnstile.Most(), 1);
}

std::atomic<int> g_scheduleFailures = 0;

struct CountedScheduleFailures {
    CountedScheduleFailures() : before(SetFailureHandler([](const UnreadFailure&) { ++g_scheduleFailures; })) {
        g_scheduleFailures = 0;
    }
    ~CountedScheduleFailures() { SetFailureHandler(before); }
    CountedScheduleFailures(const CountedScheduleFailures&) = delete;
    CountedScheduleFailures& operator=(const CountedScheduleFailures&) = delete;

    const FailureHandler before;
};

TEST(JobGroupScheduleFailure, GoesOnUnlessSaidOtherwise) {
    const ConcurrencyLifetime lifetime;
    const CountedScheduleFailures failures;
    std::atomic<int> runs = 0;
    JobGroup group(L"group");
    group.Schedule(L"fails", 0s, 1ms, [&runs] {
        ++runs;
        throw std::domain_error("again and again");
    });
    EXPECT_TRUE(Eventually([&] { return runs >= 3; }));
    EXPECT_EQ(group.GetCancelReason().cause, CancelCause::None);
    group.Cancel();
    WaitForTheEndOf(group);  // a run may have been added that has not begun
    EXPECT_GE(group.Counts().failed, 3U);
    EXPECT_TRUE(Eventually([&] { return g_scheduleFailures == static_cast<int>(group.Counts().failed); }));
    EXPECT_TRUE(group.Failures().empty());
}

TEST(JobGroupScheduleFailure, StopsTheScheduleAndSparesTheGroup) {
    const ConcurrencyLifetime lifetime;
    const CountedScheduleFailures failures;
    std::atomic<int> runs = 0;
    JobGroup group(L"group");
    group.Schedule(
        L"fails", 0s, 1ms,
        [&runs] {
            if (++runs == 2) {
                throw std::domain_error("the second");
            }
        },
        OnFailure::Stop);
    group.Wait();
    EXPECT_EQ(runs, 2);
    EXPECT_TRUE(Eventually([] { return g_scheduleFailures == 1; }));
    EXPECT_EQ(group.Run(L"next", [] { return 1; }).Get(), 1);
}

TEST(JobGroupScheduleFailure, FailsTheGroup) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    const CountedScheduleFailures failures;
    JobGroup group(L"group");
    const auto other = group.Run(L"other", [&blocked] { blocked.Stay(); });
    ASSERT_TRUE(blocked.Enter(1));
    group.Schedule(L"fails", 0s, 1ms, [] { throw std::domain_error("fails"); }, OnFailure::FailGroup);
    EXPECT_THROW(group.Wait(), std::domain_error);
    EXPECT_EQ(other.GetCancelReason().by, L"fails");
    EXPECT_EQ(g_scheduleFailures, 0);
}

TEST(JobGroupScheduleFailure, IsAlsoAnEmptyFunction) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    group.Schedule(L"empty", 0s, 0s, std::function<void()>(), OnFailure::FailGroup);
    EXPECT_THROW(group.Wait(), std::bad_function_call);
}

TEST(JobGroupSchedule, MayEndTheGroupInItsRun) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> runs = 0;
    JobGroup group(L"group");
    group.Schedule(L"cancels", 0s, 1ms, [&] {
        if (++runs == 3) {
            group.Cancel();
        }
    });
    EXPECT_TRUE(group.WaitFor(kPatience));
    EXPECT_EQ(runs, 3);
}

TEST(JobGroupSchedule, MayDropTheGroupInItsRun) {
    const ConcurrencyLifetime lifetime;
    Gate isThere;
    Gate dropped;
    auto group = std::make_unique<JobGroup>(L"group");
    group->Schedule(L"drops", 0s, 1ms, [&] {
        isThere.Wait();
        group.reset();
        dropped.Open();
    });
    isThere.Open();
    dropped.Wait();
}

// All workers are taken, nobody can wait for a growth, and the run that is due is itself on a worker.
TEST(JobGroupSchedule, FailsTheGroupIfItsJobGetsNoWorker) {
    FakeTicks ticks(100'000);
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    WakeScheduler();
    HeldTasks held;
    ASSERT_TRUE(held.Start(5, &Internal::GlobalThreadPool::Queue));
    starts.FailAt(starts.Count() + 1);
    bool ran = false;
    JobGroup group(L"group");
    group.Schedule(L"due", 0s, 1h, [&ran] { ran = true; });
    EXPECT_THROW(group.Wait(), std::exception);
    EXPECT_FALSE(ran);
}

}  // namespace
