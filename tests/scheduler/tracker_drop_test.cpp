// The last copy of a tracker goes: before its task's start, between its runs, while it is queued, runs or is skipped.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <optional>
#include <thread>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/scheduler/tracker.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/scheduler/moments.h"
#include "tests/scheduler/wake_scheduler.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/recorded_reports.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/held_worker.h"
#include "tests/threadpool/pool_numbers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class DroppedTracker : public testing::Test {
  protected:
    void SetClock(TimePoint moment) {
        m_clock.Set(moment);
        WakeScheduler();
    }

    // A recurrent call that counts its runs and tells when the last copy of it is gone.
    auto Call() {
        return [this, end = AtEnd([this] { m_destroyed = true; })] { ++m_runs; };
    }

    // The next due time finds the task cancelled: it does not run, and the schedule lets go of it.
    void ExpectNoMoreRuns(int runs, TimePoint nextStart) {
        SetClock(nextStart);
        EXPECT_TRUE(Eventually([&] { return m_destroyed.load(); }));
        EXPECT_EQ(m_runs, runs);
    }

    // Until the gate has been opened.
    static void ExpectThatTheDropWaits(std::optional<Tracker>& tracker, Gate& gate) {
        const PlainThread dropping([&] { tracker.reset(); });
        EXPECT_FALSE(Eventually([&] { return dropping.HasEnded(); }, 50ms));
        gate.Open();
        EXPECT_TRUE(Eventually([&] { return dropping.HasEnded(); }));
    }

    std::atomic<int> m_runs = 0;
    std::atomic<bool> m_destroyed = false;
    const TimePoint m_start = Now() + 1h;
    FakeWallClock m_clock{m_start - 1h};
    const ConcurrencyLifetime m_lifetime;
};

TEST_F(DroppedTracker, BeforeTheStartLeavesNothingToRun) {
    for (const Duration interval : {kOnce, Duration(1h)}) {
        {
            const Tracker tracker = Schedule(L"before", m_start, interval, Call());
        }
        ExpectNoMoreRuns(0, m_start);
        m_destroyed = false;
        m_clock.Set(m_start - 1h);
    }
}

TEST_F(DroppedTracker, BetweenRunsLeavesNothingToRun) {
    {
        const Tracker tracker = Schedule(L"between", m_start - 1h, 1h, Call());
        ASSERT_TRUE(Eventually([&] { return m_runs == 1; }));
    }
    ExpectNoMoreRuns(1, m_start);
}

// It neither waits for a worker nor for a run.
TEST_F(DroppedTracker, WhileTheTaskIsQueuedLeavesNothingToRun) {
    std::list<HeldWorker> workers;
    for (int i = 0; i < kFirstWorkers; ++i) {
        workers.emplace_back(&GlobalThreadPool::Queue);
    }
    std::optional<Tracker> tracker = Schedule(L"queued", m_start - 1h, 1h, Call());
    const Task last = MakeTask(L"behind it", [] {});
    GlobalScheduler::Insert(ScheduledTask(last, m_start - 1h + Duration(1), kOnce));
    m_clock.Set(m_start - 1h + Duration(1));
    WakeScheduler();
    ASSERT_TRUE(Eventually([&] { return GlobalThreadPool::IsPresent(last); }));

    const PlainThread dropping([&] { tracker.reset(); });
    EXPECT_TRUE(Eventually([&] { return dropping.HasEnded(); }));

    for (HeldWorker& worker : workers) {
        worker.Release();
    }
    ASSERT_TRUE(Eventually([&] { return !GlobalThreadPool::IsPresent(last); }));
    ExpectNoMoreRuns(0, m_start);
}

TEST_F(DroppedTracker, WhileARunThatCancelledItselfIsStillLeavingWaitsForIt) {
    Gate assigned;
    Gate leaving;
    Gate mayLeave;
    std::optional<Tracker> tracker;
    tracker = Schedule(L"leaving", m_start - 1h, 1h, [&, call = Call()] {
        assigned.Wait();
        const auto last = AtEnd([&] {
            leaving.Open();
            mayLeave.Wait();
        });
        call();
        tracker->Cancel();
    });
    assigned.Open();
    leaving.Wait();

    ExpectThatTheDropWaits(tracker, mayLeave);
    ExpectNoMoreRuns(1, m_start);
}

// The task has been reset by then: its next run is what a wait would be for.
TEST_F(DroppedTracker, WhileTheCallableOfARunIsBeingDestroyedWaitsForIt) {
    static std::atomic<bool> armed;
    static Gate destroying;
    static Gate mayGo;
    struct Capture {
        Capture() = default;
        Capture(const Capture&) = default;
        Capture& operator=(const Capture&) = delete;
        ~Capture() {
            if (armed.exchange(false)) {
                destroying.Open();
                mayGo.Wait();
            }
        }
    };
    std::optional<Tracker> tracker = Schedule(L"ending", m_start - 1h, 1h, [call = Call(), capture = Capture()] {
        call();
        armed = true;
    });
    destroying.Wait();

    ExpectThatTheDropWaits(tracker, mayGo);
    ExpectNoMoreRuns(1, m_start);
}

TEST_F(DroppedTracker, DuringARunThatIsBeingSkippedWaitsForTheRunOnly) {
    const RecordedReports reports;
    std::atomic<bool> ended = false;
    {
        const Tracker tracker = Schedule(L"during", m_start - 1h, 1h, [&, call = Call()] {
            call();
            try {
                CancellableSleep(kForever);
            } catch (const CancelRequestedException&) {
                std::this_thread::sleep_for(20ms);  // a clean-up that the drop has to wait for
                ended = true;
                throw;
            }
        });
        SetClock(m_start);
        ASSERT_TRUE(reports.WaitFor(L"Scheduler", nullptr));
        ASSERT_TRUE(Eventually([&] { return m_runs == 1; }));  // a run that is queued is skipped as well
    }
    EXPECT_TRUE(ended);
    ExpectNoMoreRuns(1, m_start + 1h);
}

TEST_F(DroppedTracker, OnAWorkerDuringAnotherTaskIsAsGoodAsAnywhere) {
    auto tracker = std::make_shared<Tracker>(Schedule(L"elsewhere", m_start - 1h, 1h, Call()));
    ASSERT_TRUE(Eventually([&] { return m_runs == 1; }));
    Task dropping = MakeTask(L"dropping", [&tracker] { tracker.reset(); });

    GlobalThreadPool::Queue(dropping);
    dropping.Wait();

    ExpectNoMoreRuns(1, m_start);
}

// Whoever is the last waits for the run.
TEST_F(DroppedTracker, FromTwoCopiesAtOnceDuringARunWaitsForIt) {
    for (int round = 0; round < 20; ++round) {
        Gate running;
        std::atomic<bool> ended = false;
        auto first = std::make_unique<Tracker>(Schedule(L"twice", m_start - 1h, 1h, [&] {
            running.Open();
            try {
                CancellableSleep(kForever);
            } catch (const CancelRequestedException&) {
                std::this_thread::sleep_for(5ms);  // a clean-up that the drop has to wait for
                ended = true;
                throw;
            }
        }));
        auto second = std::make_unique<Tracker>(*first);
        running.Wait();
        Countdown together(2);
        {
            const PlainThread one([&] {
                together.Meet();
                first.reset();
            });
            const PlainThread two([&] {
                together.Meet();
                second.reset();
            });
        }
        EXPECT_TRUE(ended);
    }
}

}  // namespace
