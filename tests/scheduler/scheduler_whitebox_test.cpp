// How the scheduler starts and how it ends.
#include "concurrency/scheduler/scheduler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/lifetime/initialization_state.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/scheduler_teardown.h"
#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"
#include "tests/scheduler/probe_task.h"
#include "tests/support/eventually.h"
#include "tests/support/failing_allocation.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/resource_probe.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// A last uninitialisation that has begun, and waits for the scheduler's thread, which is held in a task's turn.
class HeldScheduler {
  public:
    explicit HeldScheduler(bool busy, std::function<void()> whenDestroyed = [] {}) {
        m_probe->busy = busy;
        m_probe->whenDestroyed = std::move(whenDestroyed);
        m_probe->whenAsked = [this] {
            m_held.Open();
            m_release.Wait();
        };
        ConcurrencyInitialize();
        GlobalScheduler::Insert(ScheduledTask(m_probe.MakeTask(L"Held"), k1970, kOnce));
        m_held.Wait();
    }

    // Calls `call` while the teardown waits, and waits for the teardown's end.
    template <typename Call>
    void TearDown(Call call) {
        const BackgroundCall teardown(&ConcurrencyUninitialize);
        EXPECT_TRUE(Eventually([] {
            const std::unique_lock lock(LifetimeMutex(), std::try_to_lock);
            return !lock.owns_lock();
        }));
        std::this_thread::sleep_for(20ms);  // to show that nothing happens
        EXPECT_TRUE(teardown.IsRunning());
        call();
        m_release.Open();
        EXPECT_TRUE(teardown.Ends());
    }

    int Runs() const { return m_probe->ran; }

  private:
    Gate m_held;
    Gate m_release;
    Probe m_probe;
};

TEST(SchedulerTeardown, NeitherHangsNorEndsTheProcessDuringAnOverrun) {
    const RecordedReports reports;
    HeldScheduler held(true);

    held.TearDown([] {});

    EXPECT_EQ(held.Runs(), 0);
    EXPECT_EQ(reports.Count(L"Scheduler"), 1U);
    EXPECT_FALSE(IsConcurrencyInitialized());
}

TEST(SchedulerTeardown, HandsOverWhatIsDueAndOnlyThat) {
    const RecordedReports reports;
    std::atomic<int> runs = 0;
    HeldScheduler held(false);
    for (int i = 0; i < 10; ++i) {
        GlobalScheduler::Insert(ScheduledTask(MakeTask(L"due", [&] { ++runs; }), k1970, kOnce));
    }
    Task later = MakeTask(L"later", [&] { ++runs; });
    GlobalScheduler::Insert(ScheduledTask(later, Now() + 1h, kOnce));

    held.TearDown([&] { EXPECT_EQ(runs, 0); });

    EXPECT_EQ(held.Runs(), 1);
    EXPECT_EQ(runs, 10);
    ASSERT_EQ(reports.Count(L"Schedule"), 1U);
    EXPECT_EQ(reports.Matching(L"Schedule").front().arguments, Arguments(L"later"));
}

// A scheduler that is stopped in the first turn of a busy task, at the moment `m_stop`. Each turn takes two hours. After
// kMany turns the clock stands, so that a scheduler which never catches up ends as well, and fails the test.
class SchedulerStop : public testing::Test {
  protected:
    static constexpr int kMany = 200;

    int TurnsOf(TimePoint start, Duration interval) {
        Gate inFirstTurn;
        Gate release;
        m_probe->busy = true;
        m_probe->whenAsked = [&] {
            if (m_probe->asked == 0) {
                inFirstTurn.Open();
                release.Wait();
            }
            if (m_probe->asked < kMany) {
                m_clock.Set(m_stop + (m_probe->asked + 1) * 2h);
            } else {
                m_probe->cancelled = true;
            }
        };
        {
            const Scheduler scheduler;
            scheduler.Queue()->Push(ScheduledTask(m_probe.MakeTask(L"Slow"), start, interval));
            inFirstTurn.Wait();
            scheduler.Queue()->Stop();
            release.Open();
        }
        return m_probe->asked;
    }

    const TimePoint m_stop = Now();
    FakeWallClock m_clock{m_stop};
    const RecordedReports m_reports;
    const Probe m_probe;
    const ConcurrencyLifetime m_lifetime;
};

TEST_F(SchedulerStop, EndsAlthoughEachTurnTakesLongerThanTheInterval) {
    EXPECT_EQ(TurnsOf(m_stop, 1h), 1);
    EXPECT_EQ(m_reports.Count(L"Schedule"), 1U) << "the task is still in the schedule";
}

TEST_F(SchedulerStop, CatchesUpThePeriodsThatWereMissedBefore) {
    EXPECT_EQ(TurnsOf(m_stop - 3h, 1h), 4);
    EXPECT_EQ(m_reports.Count(L"Schedule"), 1U) << "the task is still in the schedule";
}

TEST_F(SchedulerStop, EndsBesideATaskThatStaysDue) {
    EXPECT_EQ(TurnsOf(m_stop, -1h), 1);
    EXPECT_EQ(m_reports.Count(L"Schedule"), 1U) << "the task is still in the schedule";
}

// What the end of a callable does is the user's code, and it may come at any time and on this thread.
TEST(SchedulerTeardown, IsNotHeldUpByATaskThatInsertsOnTheSchedulersThread) {
    const RecordedReports reports;
    std::atomic<int> runs = 0;
    HeldScheduler held(true, [&runs] {
        GlobalScheduler::Insert(ScheduledTask(MakeTask(L"in time", [&runs] { ++runs; }), k1970, kOnce));
        GlobalScheduler::Insert(ScheduledTask(MakeTask(L"too late", [&runs] { ++runs; }), Now() + 1h, kOnce));
    });

    held.TearDown([] {});

    EXPECT_EQ(runs, 1);
    ASSERT_EQ(reports.Count(L"Schedule"), 1U);
    EXPECT_EQ(reports.Matching(L"Schedule").front().arguments, Arguments(L"too late"));
}

TEST(SchedulerTeardown, DestroysWhatIsLeftWithoutTheLockOfItsCreation) {
    bool lockWasFree = false;
    {
        const ConcurrencyLifetime lifetime;
        const auto useLock = [&] {
            const BackgroundCall other([] { const CriticalSectionLock lock(SchedulerLock()); });
            lockWasFree = other.Ends();
        };
        GlobalScheduler::Insert(ScheduledTask(MakeTask(L"left", [end = AtEnd(useLock)] {}), Now() + 1h, kOnce));
    }
    EXPECT_TRUE(lockWasFree);
}

// The thread is started first: it must not be left behind when something after it fails.
TEST(SchedulerStart, LeavesNoThreadBehindWhenItFailsWithoutMemory) {
    {
        const Scheduler first;
    }
    const ThreadStarts starts;
    const ResourceProbe probe;
    const auto noneIsLeft = [&] { return Eventually([&] { return probe.Growth().threads <= 0; }); };
    const int failures = FailEachAllocation([] { const Scheduler scheduler; },
                                            [&](const std::exception& error) {
                                                EXPECT_NE(dynamic_cast<const std::bad_alloc*>(&error), nullptr);
                                                EXPECT_TRUE(noneIsLeft());
                                            });
    EXPECT_GE(failures, 3) << "the queue, what the thread starts with, and the report";
    EXPECT_GE(starts.Count(), 2) << "no failure came after the start of the thread";
}

TEST(SchedulerStart, FailsWhenItsThreadCannotBeStarted) {
    ThreadStarts starts;
    starts.FailAt(1);
    try {
        const Scheduler scheduler;
        FAIL() << "no thread, and no exception";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
    }
    EXPECT_NO_THROW({ const Scheduler scheduler; });
}

}  // namespace
