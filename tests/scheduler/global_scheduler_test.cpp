// Which tasks are handed to the pool, when and on which thread; how long the scheduler lives.
#include "concurrency/scheduler/global_scheduler.h"

#include <gtest/gtest.h>

#include <objbase.h>

#include <atomic>
#include <chrono>
#include <list>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "tests/lifetime/library_use.h"
#include "tests/lifetime/started_threads.h"
#include "tests/scheduler/moments.h"
#include "tests/scheduler/probe_task.h"
#include "tests/scheduler/wake_scheduler.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/recorded_reports.h"
#include "tests/sync/wall_clock.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr const wchar_t* kLeft = L"Active task %s still in schedule at destruction";

void Insert(const Task& task, TimePoint start, Duration interval = kOnce) {
    GlobalScheduler::Insert(ScheduledTask(task, start, interval));
}

TEST(GlobalScheduler, RunsATaskAtOnceWhoseStartHasPassed) {
    const ConcurrencyLifetime lifetime;
    for (const TimePoint start : {Now(), Now() - 1h, k1970, k1970 - Duration(1), TimePoint::min()}) {
        std::atomic<int> runs = 0;
        Task task = MakeTask(L"overdue", [&] { ++runs; });
        Insert(task, start);
        task.Wait();
        EXPECT_EQ(runs, 1);
    }
}

TEST(GlobalScheduler, NeverRunsATaskBeforeItsStart) {
    std::atomic<int> early = 0;
    Countdown all(50);
    const ConcurrencyLifetime lifetime;
    for (int i = 0; i < 50; ++i) {
        const TimePoint start = WallClockNow() + std::chrono::microseconds(1'700 * (50 - i));
        Insert(MakeTask(L"timed",
                        [&, start] {
                            early += WallClockNow() < start ? 1 : 0;
                            all.Arrive();
                        }),
               start);
    }
    ASSERT_TRUE(Eventually([&] { return all.Missing() == 0; }));
    EXPECT_EQ(early, 0);
}

// No wait may end between them: the clock stands at their start.
TEST(GlobalScheduler, RunsEveryTaskOfTheSameStartInOnePass) {
    const TimePoint start = Now() + 1h;
    FakeWallClock clock(start - 1h);
    Countdown both(2);
    const ConcurrencyLifetime lifetime;
    for (int i = 0; i < 2; ++i) {
        Insert(MakeTask(L"twin", [&] { both.Arrive(); }), start);
    }
    EXPECT_EQ(both.Missing(), 2U);

    clock.Set(start);
    WakeScheduler();

    EXPECT_TRUE(Eventually([&] { return both.Missing() == 0; }));
}

TEST(GlobalScheduler, ALongTaskKeepsNoOtherFromRunning) {
    Gate release;
    Gate ran;
    const ConcurrencyLifetime lifetime;
    Insert(MakeTask(L"long", [&] { release.Wait(); }), k1970);
    Insert(MakeTask(L"short", [&] { ran.Open(); }), Now() + 5ms);

    EXPECT_TRUE(Eventually([&] { return ran.IsOpen(); }));
    release.Open();
}

// Apartments: a thread that has entered none enters one with S_OK.
TEST(GlobalScheduler, HasAThreadOfItsOwnInNoApartmentThatRunsNoTasks) {
    Probe probe;
    std::atomic<DWORD> asking = 0;
    std::atomic<HRESULT> entered = E_FAIL;
    const ConcurrencyLifetime lifetime;
    probe->whenAsked = [&] {
        entered = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        CoUninitialize();
        asking = GetCurrentThreadId();
    };
    Insert(probe.MakeTask(), k1970);
    ASSERT_TRUE(Eventually([&] { return asking != 0; }));
    EXPECT_EQ(entered, S_OK);

    for (int i = 0; i < 50; ++i) {
        std::atomic<DWORD> running = 0;
        Task task = MakeTask(L"where", [&] { running = GetCurrentThreadId(); });
        Insert(task, k1970);
        task.Wait();
        EXPECT_NE(running, asking);
        EXPECT_NE(running, GetCurrentThreadId());
    }
}

TEST(GlobalScheduler, IsAssignableThoughItHasNothingToAssign) {
    GlobalScheduler first;
    GlobalScheduler second;
    EXPECT_EQ(&(first = second), &first);
    EXPECT_EQ(&(first = std::move(second)), &first);
}

TEST(GlobalScheduler, IsCreatedByTheFirstInsert) {
    const StartedThreads threads;
    const ConcurrencyLifetime lifetime;
    EXPECT_EQ(threads.Count(), 0U);

    CreateScheduler();
    EXPECT_EQ(threads.Count(), 1U);
    CreateScheduler();
    EXPECT_EQ(threads.Count(), 1U);
}

TEST(GlobalScheduler, IsOneForManyThreadsThatInsertFirst) {
    constexpr std::size_t kThreads = 16;
    const TimePoint start = Now() + 1h;
    FakeWallClock clock(start - 1h);
    const StartedThreads threads;
    Countdown together(kThreads);
    Countdown ran(kThreads);
    const ConcurrencyLifetime lifetime;
    {
        std::list<PlainThread> inserting;
        for (std::size_t i = 0; i < kThreads; ++i) {
            inserting.emplace_back([&] {
                const Task task = MakeTask(L"among the first", [&] { ran.Arrive(); });
                together.Meet();
                Insert(task, start);
            });
        }
    }
    EXPECT_EQ(threads.Count(), 1U);

    clock.Set(start);
    WakeScheduler();

    EXPECT_TRUE(Eventually([&] { return ran.Missing() == 0; })) << ran.Missing() << " tasks were lost";
}

TEST(GlobalScheduler, ReportsWhatIsLeftAtTheLastUninitialisationAndRunsNothingOfIt) {
    std::atomic<int> runs = 0;
    const auto count = [&] { ++runs; };
    const Task recurrent = MakeTask(L"recurrent", count);
    const Task once = MakeTask(L"once", count);
    Task cancelled = MakeTask(L"cancelled", count);
    const RecordedReports reports;
    ConcurrencyInitialize();
    ConcurrencyInitialize();
    Insert(recurrent, Now() + 2h, 1h);
    Insert(cancelled, Now() + 3h);
    Insert(once, Now() + 1h);
    cancelled.Cancel();

    ConcurrencyUninitialize();
    EXPECT_EQ(reports.Count(L"Schedule"), 0U);
    ConcurrencyUninitialize();

    const auto records = reports.Matching(L"Schedule");
    ASSERT_EQ(records.size(), 2U);
    for (const RecordedReport& record : records) {
        EXPECT_EQ(record.severity, 4);
        EXPECT_EQ(record.kind, 16);
        EXPECT_EQ(record.format, kLeft);
    }
    EXPECT_EQ(records[0].arguments, Arguments(L"once"));
    EXPECT_EQ(records[1].arguments, Arguments(L"recurrent"));
    EXPECT_EQ(runs, 0);
    EXPECT_FALSE(once.IsCancelled());
    EXPECT_FALSE(recurrent.IsCancelled());
}

TEST(GlobalScheduler, IsEmptyInTheNextCycle) {
    const RecordedReports reports;
    std::atomic<int> runs = 0;
    const TimePoint start = Now() + 1h;
    FakeWallClock clock(start - 1h);
    {
        const ConcurrencyLifetime lifetime;
        Insert(MakeTask(L"of the first cycle", [&] { ++runs; }), start, 1h);
    }
    EXPECT_EQ(reports.Count(L"Schedule", kLeft), 1U);
    {
        const ConcurrencyLifetime lifetime;
        clock.Set(start + 10h);
        UseScheduler();
    }
    EXPECT_EQ(reports.Count(L"Schedule", kLeft), 1U);
    EXPECT_EQ(runs, 0);
}

TEST(GlobalScheduler, WorksWithoutInitialisationAndBelongsToTheCycleThatFollows) {
    const StartedThreads threads;
    UseScheduler();
    EXPECT_GE(threads.AliveCount(), 2U);

    ConcurrencyInitialize();
    ConcurrencyUninitialize();
    EXPECT_EQ(threads.AliveCount(), 0U);

    UseScheduler();
    EXPECT_GE(threads.AliveCount(), 2U);
    const ConcurrencyLifetime lifetime;
}

}  // namespace
