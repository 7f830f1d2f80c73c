// The scheduler follows the wall clock, also when that is set, and sleeps meanwhile.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"
#include "tests/scheduler/wake_scheduler.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_wall_clock.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class SchedulerClock : public testing::Test {
  protected:
    void Insert(TimePoint start, Duration interval = kOnce) {
        m_task = MakeTask(L"timed", [this] { ++m_runs; });
        GlobalScheduler::Insert(ScheduledTask(m_task, start, interval));
    }

    // The clock is read once or twice per look at the queue; who spins reads it many thousand times.
    void ExpectSleep() {
        // Until what is due is done, and the thread has gone to sleep.
        ASSERT_TRUE(Eventually([this, before = -1L]() mutable {
            const long now = m_clock.Reads();
            const bool stands = now == before;
            before = now;
            std::this_thread::sleep_for(5ms);
            return stands;
        }));
        const long before = m_clock.Reads();
        std::this_thread::sleep_for(100ms);  // to show that nothing happens
        EXPECT_LE(m_clock.Reads() - before, 10);
    }

    const TimePoint m_now = Now();
    FakeWallClock m_clock{m_now};
    Task m_task;
    std::atomic<int> m_runs = 0;
    const ConcurrencyLifetime m_lifetime;
};

// It does not look at the clock before its wait, which began before the step, is over. An earlier task ends it as well.
TEST_F(SchedulerClock, WhenSetForwardIsNoticedAtTheEndOfTheWait) {
    Insert(m_now + 1h);
    ExpectSleep();
    m_clock.Set(m_now + 2h);
    std::this_thread::sleep_for(50ms);  // to show that nothing happens
    EXPECT_EQ(m_runs, 0);

    WakeScheduler();

    EXPECT_TRUE(Eventually([&] { return m_runs == 1; }));
}

TEST_F(SchedulerClock, WhenSetForwardWithinAWaitMakesTheNextTasksEarly) {
    Insert(m_now + 100ms);
    std::atomic<bool> ran = false;
    GlobalScheduler::Insert(ScheduledTask(MakeTask(L"next", [&] { ran = true; }), m_now + 1h, kOnce));

    m_clock.Set(m_now + 2h);

    EXPECT_TRUE(Eventually([&] { return m_runs == 1 && ran; }));
}

// The wait is over when it was to be, and the task is not due any more.
TEST_F(SchedulerClock, WhenSetBackMakesTasksLateWithoutSpinning) {
    Insert(m_now + 30ms);
    m_clock.Set(m_now - 1h);
    std::this_thread::sleep_for(60ms);  // to show that nothing happens
    ExpectSleep();
    EXPECT_EQ(m_runs, 0);

    m_clock.Set(m_now + 29ms);
    WakeScheduler();
    std::this_thread::sleep_for(10ms);  // to show that nothing happens
    EXPECT_EQ(m_runs, 0);
    m_clock.Set(m_now + 30ms);
    WakeScheduler();
    EXPECT_TRUE(Eventually([&] { return m_runs == 1; }));
}

TEST_F(SchedulerClock, WhenSetBackDoesNotRepeatAPeriod) {
    Insert(m_now, 1h);
    ASSERT_TRUE(Eventually([&] { return m_runs == 1; }));

    m_clock.Set(m_now - 1h);
    WakeScheduler();
    m_clock.Set(m_now + 59min);
    WakeScheduler();

    ExpectSleep();
    EXPECT_EQ(m_runs, 1);
}

}  // namespace
