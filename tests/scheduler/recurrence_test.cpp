// When a recurrent task falls due again, and when no more.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"
#include "tests/scheduler/overrun_report.h"
#include "tests/scheduler/probe_task.h"
#include "tests/scheduler/tracked_task.h"
#include "tests/scheduler/wake_scheduler.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class Recurrence : public testing::Test {
  protected:
    void Insert(TimePoint start, Duration interval) {
        GlobalScheduler::Insert(ScheduledTask(m_probe.MakeTask(), start, interval));
    }

    void SetClock(TimePoint moment) {
        m_clock.Set(moment);
        WakeScheduler();
    }

    // Whether the task has had so many turns in all, runs and skips together, and gets no more of them.
    void ExpectTurns(int count) {
        EXPECT_TRUE(Eventually([&] {
            const auto reports = static_cast<int>(m_reports.Count(L"Scheduler", kOverrun));
            return m_probe->asked == count && m_probe->ran + reports == count;
        })) << m_probe->asked
            << " turns, " << m_probe->ran << " runs, " << m_reports.Count(L"Scheduler", kOverrun) << " reports";
        std::this_thread::sleep_for(20ms);  // to show that nothing happens
        EXPECT_EQ(m_probe->asked, count);
    }

    void ExpectGone() {
        EXPECT_TRUE(Eventually([&] { return m_probe->destroyed.load(); }));
    }

    const TimePoint m_start = Now();
    FakeWallClock m_clock{m_start};
    const RecordedReports m_reports;
    const Probe m_probe;
    const ConcurrencyLifetime m_lifetime;
};

TEST_F(Recurrence, GivesATaskOneTurnPerPeriod) {
    Insert(m_start, 1h);
    ExpectTurns(1);
    for (int period = 1; period <= 3; ++period) {
        SetClock(m_start + std::chrono::hours(period) - Duration(1));
        ExpectTurns(period);
        SetClock(m_start + std::chrono::hours(period));
        ExpectTurns(period + 1);
    }
}

TEST_F(Recurrence, CatchesUpEveryPeriodThatWasMissed) {
    Insert(m_start + 1h, 1h);
    ExpectTurns(0);

    SetClock(m_start + 6h + 30min);
    ExpectTurns(6);

    // On with the periods as they were, not with one that is counted from now.
    SetClock(m_start + 7h - Duration(1));
    ExpectTurns(6);
    SetClock(m_start + 7h);
    ExpectTurns(7);
}

TEST_F(Recurrence, CatchesUpFromAStartInThePast) {
    Insert(m_start - 9h, 1h);

    ExpectTurns(10);
}

TEST_F(Recurrence, EndsWithTheOnlyTurnOfATaskThatRunsOnce) {
    Insert(m_start, kOnce);

    ExpectTurns(1);
    ExpectGone();
    SetClock(m_start + 24h);
    ExpectTurns(1);
}

TEST_F(Recurrence, HandsACancelledTaskOverOnceMoreAndLetsItGo) {
    Insert(m_start, 1h);
    ExpectTurns(1);
    ASSERT_TRUE(Eventually([&] { return m_probe->askedForCancellation == 2; }));
    m_probe->cancelled = true;
    std::this_thread::sleep_for(20ms);  // to show that nothing happens
    EXPECT_FALSE(m_probe->destroyed);

    SetClock(m_start + 1h);

    ExpectGone();
    EXPECT_EQ(m_probe->asked, 2);
    EXPECT_EQ(m_probe->askedForCancellation, 4) << "by the pool, which refuses it, and by the scheduler";
    EXPECT_EQ(m_probe->ran, 1);
    EXPECT_EQ(m_reports.Count(L"Scheduler"), 0U);
}

TEST_F(Recurrence, SkipsACancelledTaskThatIsStillBusyAndLetsItGo) {
    m_probe->busy = true;
    Insert(m_start, 1h);
    ASSERT_TRUE(Eventually([&] { return m_probe->askedForCancellation == 1; }));
    m_probe->cancelled = true;

    SetClock(m_start + 1h);

    ExpectGone();
    EXPECT_TRUE(m_reports.WaitFor(L"Scheduler", kOverrun, 2));
    EXPECT_EQ(m_probe->ran, 0);
}

TEST_F(Recurrence, KeepsATaskDueForEverThatHasANegativeInterval) {
    Insert(m_start, -1h);

    EXPECT_TRUE(Eventually([&] { return m_probe->asked >= 50; }));
    m_probe->cancelled = true;
    ExpectGone();
}

// The next start lies beyond the end of time, where it wraps into the past.
TEST_F(Recurrence, WrapsAtTheEndOfTime) {
    Insert(m_start, Duration::max());

    EXPECT_TRUE(Eventually([&] { return m_probe->asked >= 2; }));
    m_probe->cancelled = true;
    ExpectGone();
}

TEST_F(Recurrence, LeavesATaskAloneWhoseStartIsTheEndOfTime) {
    Insert(TimePoint::max(), 1ms);

    SetClock(m_start + 100 * 365 * 24h);

    ExpectTurns(0);
    m_probe->cancelled = true;
}

TEST_F(Recurrence, RunsATrackedTaskOncePerPeriod) {
    std::atomic<int> runs = 0;
    const TrackedTask task(L"tracked", m_start, 1h, [&] { ++runs; });
    for (int period = 1; period <= 5; ++period) {
        ASSERT_TRUE(Eventually([&] { return runs == period && task.IsIdle(); }));
        std::this_thread::sleep_for(20ms);  // to show that nothing happens
        EXPECT_EQ(runs, period);
        SetClock(m_start + std::chrono::hours(period));
    }
    EXPECT_EQ(m_reports.Count(L"Scheduler"), 0U);
}

// What a handle destroys is the user's code: the queue must not be locked. Nobody but the scheduler has a handle of a task
// that it has skipped.
TEST_F(Recurrence, TaskThatEndsOnTheSchedulersThreadMayInsertAnother) {
    DWORD asking = 0;
    DWORD destroying = 0;
    std::atomic<bool> ran = false;
    m_probe->busy = true;
    m_probe->whenAsked = [&] { asking = GetCurrentThreadId(); };
    m_probe->whenDestroyed = [&] {
        destroying = GetCurrentThreadId();
        GlobalScheduler::Insert(ScheduledTask(MakeTask(L"another", [&] { ran = true; }), k1970, kOnce));
    };
    Insert(m_start, kOnce);

    ASSERT_TRUE(Eventually([&] { return ran.load(); }));
    EXPECT_EQ(destroying, asking);
}

}  // namespace
