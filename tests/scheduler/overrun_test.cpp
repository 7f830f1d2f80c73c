// A task that falls due while its last run is not over: skipped, and reported.
#include <gtest/gtest.h>

#include <objbase.h>

#include <atomic>
#include <chrono>
#include <list>
#include <thread>

#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/scheduler/moments.h"
#include "tests/scheduler/overrun_report.h"
#include "tests/scheduler/probe_task.h"
#include "tests/scheduler/tracked_task.h"
#include "tests/scheduler/wake_scheduler.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/recorded_reports.h"
#include "tests/threadpool/held_worker.h"
#include "tests/threadpool/pool_numbers.h"
#include "tests/threadpool/task_records.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class Overrun : public testing::Test {
  protected:
    void SetClock(TimePoint moment) {
        m_clock.Set(moment);
        WakeScheduler();
    }

    std::size_t Reports() const { return m_reports.Count(L"Scheduler", kOverrun); }

    // Whether there are so many reports and no more come.
    void ExpectReports(std::size_t count) {
        EXPECT_TRUE(m_reports.WaitFor(L"Scheduler", kOverrun, count));
        std::this_thread::sleep_for(20ms);  // to show that nothing happens
        EXPECT_EQ(Reports(), count);
    }

    const TimePoint m_start = Now();
    FakeWallClock m_clock{m_start};
    const RecordedReports m_reports;
    const ConcurrencyLifetime m_lifetime;
};

TEST_F(Overrun, OfARunThatIsStillBusyIsSkippedReportedAndNotMadeUpFor) {
    Gate release;
    std::atomic<int> entered = 0;
    const TrackedTask task(L"Slow", m_start, 1h, [&] {
        ++entered;
        release.Wait();
    });
    ASSERT_TRUE(Eventually([&] { return entered == 1; }));
    EXPECT_EQ(Reports(), 0U);

    SetClock(m_start + 1h);
    ExpectReports(1);
    EXPECT_EQ(entered, 1);

    release.Open();
    ASSERT_TRUE(Eventually([&] { return task.IsIdle(); }));
    std::this_thread::sleep_for(20ms);  // to show that nothing happens
    EXPECT_EQ(entered, 1);
    SetClock(m_start + 2h);
    EXPECT_TRUE(Eventually([&] { return entered == 2; }));
    EXPECT_EQ(Reports(), 1U);
}

TEST_F(Overrun, IsReportedByATaskOfThePool) {
    Probe probe;
    probe->busy = true;
    std::atomic<DWORD> scheduler = 0;
    probe->whenAsked = [&] { scheduler = GetCurrentThreadId(); };
    GlobalScheduler::Insert(ScheduledTask(probe.MakeTask(L"Slow"), m_start, kOnce));
    ASSERT_TRUE(Eventually([&] { return CountTasks(m_reports, kStopped, L"Report delay") == 1; }));

    const auto records = m_reports.Matching(L"Scheduler");
    ASSERT_EQ(records.size(), 1U);
    const RecordedReport& record = records.front();
    EXPECT_EQ(record.severity, 4);
    EXPECT_EQ(record.kind, 4);
    EXPECT_EQ(record.format, kOverrun);
    EXPECT_EQ(record.arguments, Arguments(L"Slow"));
    EXPECT_EQ(record.text, L"TaskImpl Slow taking longer to execute than scheduled interval");
    EXPECT_NE(record.threadId, scheduler);
    EXPECT_NE(record.threadId, GetCurrentThreadId());
    EXPECT_EQ(CountTasks(m_reports, kStarted, L"Report delay"), 1);
}

TEST_F(Overrun, IsReportedOncePerPeriod) {
    Probe probe;
    probe->busy = true;
    GlobalScheduler::Insert(ScheduledTask(probe.MakeTask(L"Slow"), m_start, 1h));
    ExpectReports(1);

    SetClock(m_start + 5h);
    ExpectReports(6);
    EXPECT_EQ(CountTasks(m_reports, kStarted, L"Report delay"), 6);
    EXPECT_EQ(probe->ran, 0);

    probe->busy = false;
    SetClock(m_start + 6h);
    EXPECT_TRUE(Eventually([&] { return probe->ran == 1; }));
    EXPECT_EQ(Reports(), 6U);
}

// Workers that are held in a destructor do not count as busy: the pool waits for them instead of growing.
TEST_F(Overrun, OfATaskThatStillWaitsInThePoolsQueueIsSkippedAndReported) {
    std::list<HeldWorker> workers;
    for (int i = 0; i < kFirstWorkers; ++i) {
        workers.emplace_back(&GlobalThreadPool::Queue);
    }
    Probe probe;
    GlobalScheduler::Insert(ScheduledTask(probe.MakeTask(L"Queued"), m_start, 1h));
    for (int turn = 1; turn <= 3; ++turn) {
        // Asked by the scheduler alone, when the turn is over.
        ASSERT_TRUE(Eventually([&] { return probe->askedForCancellation == turn; }));
        if (turn < 3) {
            SetClock(m_start + std::chrono::hours(turn));
        }
    }

    for (HeldWorker& worker : workers) {
        worker.Release();
    }

    ExpectReports(2);
    EXPECT_EQ(probe->ran, 1);
}

// The tail of a run that has been renewed: the task itself is not busy any more, but the pool is not done with it.
TEST_F(Overrun, OfARunThatHasResetItsTaskIsSkippedAndReported) {
    Gate release;
    Gate inTail;
    std::atomic<int> entered = 0;
    std::atomic<int> inside = 0;
    std::atomic<bool> twoAtOnce = false;
    const auto work = [&] {
        ++entered;
        if (++inside > 1) {
            twoAtOnce = true;
        }
    };
    const TrackedTask task(L"Tail", m_start, 1h, work, [&] {
        inTail.Open();
        release.Wait();
        --inside;
    });
    inTail.Wait();
    EXPECT_FALSE(task.Handle().IsBusy());
    EXPECT_FALSE(task.IsIdle());

    SetClock(m_start + 1h);
    ExpectReports(1);
    EXPECT_EQ(entered, 1);

    release.Open();
    ASSERT_TRUE(Eventually([&] { return task.IsIdle(); }));
    SetClock(m_start + 2h);
    EXPECT_TRUE(Eventually([&] { return entered == 2; }));
    EXPECT_FALSE(twoAtOnce);
}

// Such a run does not count as busy, but the pool is not done with it.
TEST_F(Overrun, OfARunThatIsBeingCancelledIsSkippedAndReported) {
    Gate release;
    std::atomic<int> entered = 0;
    Tracker tracker = Schedule(L"Cancelling", m_start, 1h, [&] {
        ++entered;
        release.Wait();
    });
    ASSERT_TRUE(Eventually([&] { return entered == 1; }));
    tracker.Cancel();
    EXPECT_EQ(Reports(), 0U);

    SetClock(m_start + 1h);
    ExpectReports(1);

    SetClock(m_start + 2h);
    ExpectReports(1);  // the schedule has let go of it
    release.Open();
}

TEST_F(Overrun, OfARunOnAThreadOfItsOwnIsSkippedAndReported) {
    Gate release;
    Countdown entered(1);
    Task task = MakeTask(L"Elsewhere", [&] {
        entered.Arrive();
        release.Wait();
    });
    GlobalThreadPool::LaunchInNewThread(task);
    entered.Wait();

    GlobalScheduler::Insert(ScheduledTask(task, m_start, kOnce));

    ExpectReports(1);
    release.Open();
    task.Wait();
}

// The report keeps a name, not the task.
TEST_F(Overrun, IsReportedUnderTheNameOfATaskThatIsGone) {
    std::list<HeldWorker> workers;
    for (int i = 0; i < kFirstWorkers; ++i) {
        workers.emplace_back(&GlobalThreadPool::Queue);
    }
    Probe probe;
    probe->busy = true;
    GlobalScheduler::Insert(
        ScheduledTask(probe.MakeTask(L"A name of more than twenty-nine characters"), m_start, kOnce));
    ASSERT_TRUE(Eventually([&] { return probe->destroyed.load(); }));
    for (int i = 0; i < 100; ++i) {
        MakeTask(L"in its memory, perhaps", [] {});
    }

    for (HeldWorker& worker : workers) {
        worker.Release();
    }

    ASSERT_TRUE(m_reports.WaitFor(L"Scheduler", kOverrun));
    EXPECT_EQ(m_reports.Matching(L"Scheduler").front().arguments, Arguments(L"A name of more than twenty-ni"));
}

std::atomic<int> g_apartmentsEntered = 0;
std::atomic<int> g_apartmentsLeft = 0;

HRESULT WINAPI CountEntry(void* reserved, DWORD kind) {
    EXPECT_EQ(kind, static_cast<DWORD>(COINIT_MULTITHREADED));
    ++g_apartmentsEntered;
    return CoInitializeEx(reserved, kind);
}

void WINAPI CountLeave() {
    ++g_apartmentsLeft;
    CoUninitialize();
}

TEST_F(Overrun, IsReportedInAnApartmentThatTheReportEntersAndLeaves) {
    const ImportPatch enter(LibraryUnderTest(), "CoInitializeEx", &CountEntry);
    const ImportPatch leave(LibraryUnderTest(), "CoUninitialize", &CountLeave);
    Probe probe;
    GlobalScheduler::Insert(ScheduledTask(probe.MakeTask(L"Not slow"), m_start, kOnce));
    ASSERT_TRUE(Eventually([&] { return probe->ran == 1 && g_apartmentsEntered == kFirstWorkers; }));
    EXPECT_EQ(g_apartmentsLeft, 0);

    probe->busy = true;
    GlobalScheduler::Insert(ScheduledTask(probe.MakeTask(L"Slow"), m_start, kOnce));

    ASSERT_TRUE(Eventually([&] { return CountTasks(m_reports, kStopped, L"Report delay") == 1; }));
    EXPECT_EQ(g_apartmentsEntered, kFirstWorkers + 1);
    EXPECT_EQ(g_apartmentsLeft, 1);
}

}  // namespace
