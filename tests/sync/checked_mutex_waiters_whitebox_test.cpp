// Those who wait for a checked_mutex: who wakes them, what they make of the clock, and what they leave behind.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "concurrency/base/windows_api.h"
#include "concurrency/sync/checked_mutex.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_monotonic_clock.h"
#include "tests/support/import_patch.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/task_thread.h"
#include "tests/support/thread.h"
#include "tests/sync/checked_mutex_peer.h"
#include "tests/sync/checked_mutex_reports.h"
#include "tests/sync/wall_clock.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// While it lives, the library's wake-ups of one waiter are counted and do not arrive.
class HeldWakeUps {
  public:
    HeldWakeUps() { s_calls = 0; }
    HeldWakeUps(const HeldWakeUps&) = delete;
    HeldWakeUps& operator=(const HeldWakeUps&) = delete;

    int Count() const { return s_calls; }

  private:
#ifdef _WIN32
    static constexpr auto kNotifyOne = "WakeConditionVariable";
    static void WINAPI NotifyOne(PCONDITION_VARIABLE) { ++s_calls; }
#else
    static constexpr auto kNotifyOne = "_ZNSt18condition_variable10notify_oneEv";
    static void NotifyOne(std::condition_variable*) { ++s_calls; }
#endif

    static inline std::atomic<int> s_calls = 0;

    const ImportPatch m_patch{LibraryUnderTest(), kNotifyOne, &NotifyOne};
};

// A mutex that this thread holds, and a task that sleeps until it is free.
class CheckedMutexWaiter : public testing::Test {
  protected:
    CheckedMutexWaiter() {
        m_mutex->lock();
        EXPECT_FALSE(m_mutex->try_lock());  // clears the flag for the destructor
    }

    void Start(const std::function<void(checked_mutex&)>& wait) {
        m_waiter = std::make_unique<TaskThread>([this, wait] { wait(*m_mutex); });
        ASSERT_TRUE(Eventually([this] { return CheckedMutexPeer::SleepersOf(*m_mutex) == 1; }));
    }

    // Brings the waiter to look at mutex and clock until `condition` holds.
    template <typename Condition>
    bool WakeUntil(Condition condition) {
        return Eventually([&] {
            CheckedMutexPeer::WakeSleepersOf(*m_mutex);
            return condition();
        });
    }

    bool WakeUntilReported() {
        return WakeUntil([this] { return m_reports.Count(kInLock) != 0; });
    }

    // The holder's unlock() is over, with all that it writes, before the waiter hears of it.
    void UnlockBeforeTheWaiterEnds() {
        {
            const HeldWakeUps held;
            m_mutex->unlock();
        }
        EXPECT_TRUE(WakeUntil([this] { return !m_waiter->IsRunning(); }));
    }

    std::size_t ReportsOfDestruction() {
        m_mutex.reset();
        return m_reports.Count(kInDestructor);
    }

    const RecordedReports m_reports;
    std::unique_ptr<checked_mutex> m_mutex = std::make_unique<checked_mutex>();
    std::unique_ptr<TaskThread> m_waiter;
};

void LockAndUnlock(checked_mutex& mutex) {
    mutex.lock();
    mutex.unlock();
}

TEST_F(CheckedMutexWaiter, IsReportedAfterThreeSecondsNotBefore) {
    FakeMonotonicClock clock(1h);
    Start(LockAndUnlock);
    clock.Set(1h + 3s - 1us);
    const long before = clock.Reads();
    EXPECT_TRUE(WakeUntil([&] { return clock.Reads() >= before + 2; }));
    EXPECT_EQ(m_reports.Count(kInLock), 0U);

    clock.Set(1h + 3s);
    EXPECT_TRUE(WakeUntilReported());
    m_mutex->unlock();
    EXPECT_TRUE(m_waiter->EndedNormally());
    const auto records = m_reports.Matching(kInLock);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].severity, 4);
    EXPECT_EQ(records[0].kind, 16);
    EXPECT_EQ(records[0].format, L"Failed to lock mutex within %d seconds");
    EXPECT_EQ(records[0].arguments, Arguments(3));
    EXPECT_EQ(CheckedMutexPeer::SleepersOf(*m_mutex), 0U);
}

TEST_F(CheckedMutexWaiter, IsNotReportedInATimedLock) {
    FakeMonotonicClock clock(1h);
    Start([](checked_mutex& mutex) { EXPECT_FALSE(mutex.timed_lock(WallClockNow() + 100ms)); });
    clock.Set(2h);
    EXPECT_TRUE(WakeUntil([this] { return !m_waiter->IsRunning(); }));
    EXPECT_EQ(m_reports.Count(kInLock), 0U);
    EXPECT_EQ(CheckedMutexPeer::SleepersOf(*m_mutex), 0U);
}

TEST_F(CheckedMutexWaiter, WaitsWithoutLimitOnceItIsReported) {
    FakeMonotonicClock clock(1h);
    Start(LockAndUnlock);
    clock.Set(1h + 3s);
    EXPECT_TRUE(WakeUntilReported());
    for (const auto later : {2h, 48h, 24h * 365 * 100}) {
        clock.Set(later);
        for (int i = 0; i < 20; ++i) {  // to show that nothing happens
            CheckedMutexPeer::WakeSleepersOf(*m_mutex);
            std::this_thread::sleep_for(1ms);
        }
        EXPECT_TRUE(m_waiter->IsRunning());
    }
    m_mutex->unlock();
    EXPECT_TRUE(m_waiter->EndedNormally());
    EXPECT_EQ(m_reports.Count(kInLock), 1U);
}

TEST_F(CheckedMutexWaiter, IsNotReportedBeforeTheEndOfTime) {
    FakeMonotonicClock clock(std::chrono::nanoseconds::max() - 1s);
    Start(LockAndUnlock);
    const long before = clock.Reads();
    EXPECT_TRUE(WakeUntil([&] { return clock.Reads() >= before + 2; }));
    EXPECT_EQ(m_reports.Count(kInLock), 0U);
    m_mutex->unlock();
    EXPECT_TRUE(m_waiter->EndedNormally());
}

TEST_F(CheckedMutexWaiter, ThatHasTakenOverByLockIsReportedByTheDestructor) {
    Start([](checked_mutex& mutex) { mutex.lock(); });
    UnlockBeforeTheWaiterEnds();
    EXPECT_EQ(ReportsOfDestruction(), 1U);
}

TEST_F(CheckedMutexWaiter, ThatHasTakenOverByTimedLockIsReportedByTheDestructor) {
    Start([](checked_mutex& mutex) { EXPECT_TRUE(mutex.timed_lock(WallClockNow() + 1h)); });
    UnlockBeforeTheWaiterEnds();
    EXPECT_EQ(ReportsOfDestruction(), 1U);
}

TEST_F(CheckedMutexWaiter, ThatHasTakenOverAfterItsReportIsReportedByTheDestructor) {
    FakeMonotonicClock clock(1h);
    Start([](checked_mutex& mutex) { mutex.lock(); });
    clock.Set(1h + 3s);
    EXPECT_TRUE(WakeUntilReported());
    ASSERT_TRUE(Eventually([this] { return CheckedMutexPeer::SleepersOf(*m_mutex) == 1; }));
    UnlockBeforeTheWaiterEnds();
    EXPECT_EQ(ReportsOfDestruction(), 1U);
}

TEST_F(CheckedMutexWaiter, IsTheOnlyOneThatUnlockWakes) {
    Start(LockAndUnlock);
    TaskThread second([this] { LockAndUnlock(*m_mutex); });
    ASSERT_TRUE(Eventually([this] { return CheckedMutexPeer::SleepersOf(*m_mutex) == 2; }));
    {
        const HeldWakeUps held;
        m_mutex->unlock();
        EXPECT_EQ(held.Count(), 1);
    }
    EXPECT_TRUE(WakeUntil([&] { return !m_waiter->IsRunning() && !second.IsRunning(); }));
}

// A waiter that was counted and has found the mutex taken may not be asleep yet: the wake-up would miss it.
TEST_F(CheckedMutexWaiter, IsNotWokenWhileOneStandsBetweenItsLookAndItsSleep) {
    Start(LockAndUnlock);
    {
        const HeldWakeUps held;
        std::unique_lock aboutToSleep(CheckedMutexPeer::InnerMutexOf(*m_mutex));
        Thread owner([this] { m_mutex->unlock(); });
        EXPECT_TRUE(Eventually([this] { return CheckedMutexPeer::HeldWordOf(*m_mutex) == 0; }));
        std::this_thread::sleep_for(50ms);  // to show that nothing happens
        EXPECT_EQ(held.Count(), 0);
        aboutToSleep.unlock();
        owner.join();
        EXPECT_EQ(held.Count(), 1);
    }
    EXPECT_TRUE(WakeUntil([this] { return !m_waiter->IsRunning(); }));
}

}  // namespace
