#include "concurrency/sync/checked_mutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <type_traits>
#include <vector>

#include "concurrency/cancellation/current_task.h"
#include "tests/support/arrivals.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/task_thread.h"
#include "tests/sync/checked_mutex_reports.h"
#include "tests/sync/others.h"
#include "tests/sync/wall_clock.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr const wchar_t* kLockedAtItsEnd = L"Attempt to destroy locked mutex";

TEST(CheckedMutex, LetsOneThreadInAtATime) {
    checked_mutex mutex;
    mutex.lock();
    EXPECT_FALSE(IsFreeForOthers(mutex));

    mutex.unlock();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST(CheckedMutex, KeepsAWaiterOutUntilTheHolderUnlocks) {
    checked_mutex mutex;
    Arrivals order;
    mutex.lock();
    TaskThread waiter([&] {
        mutex.lock();
        order.Add("waiter");
        mutex.unlock();
    });
    std::this_thread::sleep_for(100ms);
    order.Add("holder");
    mutex.unlock();
    waiter.Join();

    EXPECT_EQ(order.List(), (Names{"holder", "waiter"}));
}

TEST(CheckedMutex, TakesAFreeMutexByTryLock) {
    checked_mutex mutex;
    EXPECT_TRUE(mutex.try_lock());
    EXPECT_FALSE(IsFreeForOthers(mutex));
    mutex.unlock();
}

TEST(CheckedMutex, IsNotRecursive) {
    checked_mutex mutex;
    mutex.lock();
    EXPECT_FALSE(mutex.try_lock());
    EXPECT_FALSE(mutex.timed_lock(WallClockNow() + 10ms));
    mutex.unlock();
}

TEST(CheckedMutex, ServesAllWaitersThoughEachUnlockWakesOne) {
    constexpr std::size_t kWaiters = 12;
    checked_mutex mutex;
    Countdown started(kWaiters);
    int served = 0;
    mutex.lock();
    std::vector<std::unique_ptr<TaskThread>> waiters;
    for (std::size_t i = 0; i < kWaiters; ++i) {
        waiters.push_back(std::make_unique<TaskThread>([&] {
            started.Arrive();
            mutex.lock();
            ++served;
            mutex.unlock();
        }));
    }
    started.Wait();
    mutex.unlock();
    for (const auto& waiter : waiters) {
        EXPECT_TRUE(waiter->EndedNormally());
    }
    EXPECT_EQ(served, static_cast<int>(kWaiters));
}

TEST(CheckedMutex, TakesAFreeMutexByTimedLockThoughTheTimeHasPassed) {
    for (const TimePoint& past : PastTimePoints()) {
        checked_mutex mutex;
        EXPECT_TRUE(mutex.timed_lock(past)) << past.time_since_epoch().count();
        mutex.unlock();
    }
}

// None of these may sleep, whatever the standard library makes of a time before 1970.
TEST(CheckedMutex, GivesUpAtOnceWhenTheTimeHasPassed) {
    for (const TimePoint& past : PastTimePoints()) {
        checked_mutex mutex;
        mutex.lock();
        std::optional<bool> result;
        TaskThread waiter([&] { result = mutex.timed_lock(past); });
        EXPECT_TRUE(Eventually([&] { return !waiter.IsRunning(); }, 10s)) << past.time_since_epoch().count();
        mutex.unlock();
        waiter.Join();
        EXPECT_EQ(result, false);
    }
}

TEST(CheckedMutex, TimesOutNotBeforeTheTime) {
    checked_mutex mutex;
    mutex.lock();
    const TimePoint deadline = WallClockNow() + 60ms;
    EXPECT_FALSE(mutex.timed_lock(deadline));
    EXPECT_GE(WallClockNow(), deadline);
    mutex.unlock();
}

TEST(CheckedMutex, IsTakenByTimedLockWhenItBecomesFreeInTime) {
    for (const TimePoint& deadline :
         {WallClockNow() + 1h, TimePoint(std::chrono::hours(24 * 365 * 400)), TimePoint::max()}) {
        checked_mutex mutex;
        mutex.lock();
        bool taken = false;
        bool free = true;
        TaskThread waiter([&] {
            taken = mutex.timed_lock(deadline);
            free = IsFreeForOthers(mutex);
            mutex.unlock();
        });
        std::this_thread::sleep_for(30ms);
        EXPECT_TRUE(waiter.IsRunning());
        mutex.unlock();
        waiter.Join();
        EXPECT_TRUE(taken);
        EXPECT_FALSE(free);
    }
}

TEST(CheckedMutex, LeavesTheMutexToItsHolderWhenTimedLockTimesOut) {
    checked_mutex mutex;
    mutex.lock();
    OnAnotherThread([&] { EXPECT_FALSE(mutex.timed_lock(WallClockNow() + 10ms)); });
    EXPECT_FALSE(IsFreeForOthers(mutex));
    mutex.unlock();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST(CheckedMutex, IsFreedByAThreadThatDoesNotHoldIt) {
    const RecordedReports reports;
    checked_mutex mutex;
    mutex.lock();
    OnAnotherThread([&] { mutex.unlock(); });
    EXPECT_TRUE(IsFreeForOthers(mutex));
    EXPECT_TRUE(reports.All().empty());
}

TEST(CheckedMutex, StaysFreeWhenAFreeMutexIsUnlocked) {
    const RecordedReports reports;
    checked_mutex mutex;
    mutex.unlock();
    mutex.unlock();
    EXPECT_TRUE(mutex.try_lock());
    EXPECT_FALSE(IsFreeForOthers(mutex));
    mutex.unlock();
    EXPECT_TRUE(reports.All().empty());
}

// The other waits of the library throw on the thread of a cancelled task.
TEST(CheckedMutex, IsNoCancellationPoint) {
    checked_mutex mutex;
    mutex.lock();
    Gate cancelled;
    bool heard = false;
    TaskThread waiter([&] {
        cancelled.Wait();
        mutex.lock();
        heard = IsCancellationRequested();
        mutex.unlock();
    });
    waiter.Cancel();
    cancelled.Open();
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(waiter.IsRunning());
    mutex.unlock();

    waiter.Join();
    EXPECT_TRUE(heard);
}

// What the destructor reports depends on the last attempt alone.
class DestroyedCheckedMutex : public testing::Test {
  protected:
    // What is reported when a mutex is destroyed after `use`.
    template <typename Use>
    std::vector<RecordedReport> After(Use use) {
        auto mutex = std::make_unique<checked_mutex>();
        use(*mutex);
        mutex.reset();
        return m_reports.All();
    }

    const RecordedReports m_reports;
};

TEST_F(DestroyedCheckedMutex, IsReportedAfterLock) {
    const auto reports = After([](checked_mutex& mutex) { mutex.lock(); });

    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].severity, 4);
    EXPECT_EQ(reports[0].kind, 16);
    EXPECT_EQ(reports[0].category, kInDestructor);
    EXPECT_EQ(reports[0].format, kLockedAtItsEnd);
    EXPECT_TRUE(reports[0].arguments.empty());
}

TEST_F(DestroyedCheckedMutex, IsReportedAfterASuccessfulTryLock) {
    EXPECT_EQ(After([](checked_mutex& mutex) { EXPECT_TRUE(mutex.try_lock()); }).size(), 1U);
}

TEST_F(DestroyedCheckedMutex, IsReportedAfterASuccessfulTimedLock) {
    EXPECT_EQ(After([](checked_mutex& mutex) { EXPECT_TRUE(mutex.timed_lock(TimePoint())); }).size(), 1U);
}

TEST_F(DestroyedCheckedMutex, IsNotReportedWhenItWasNeverLocked) {
    EXPECT_TRUE(After([](checked_mutex&) {}).empty());
}

TEST_F(DestroyedCheckedMutex, IsNotReportedAfterUnlock) {
    EXPECT_TRUE(After([](checked_mutex& mutex) {
                    mutex.lock();
                    mutex.unlock();
                }).empty());
}

TEST_F(DestroyedCheckedMutex, IsNotReportedAfterAnUnlockByAnotherThread) {
    EXPECT_TRUE(After([](checked_mutex& mutex) {
                    mutex.lock();
                    OnAnotherThread([&] { mutex.unlock(); });
                }).empty());
}

// On purpose: the flag is the outcome of the last attempt, not who holds the mutex.
TEST_F(DestroyedCheckedMutex, IsNotReportedAfterAFailedTryLockOfAnother) {
    EXPECT_TRUE(After([](checked_mutex& mutex) {
                    mutex.lock();
                    OnAnotherThread([&] { EXPECT_FALSE(mutex.try_lock()); });
                }).empty());
}

TEST_F(DestroyedCheckedMutex, IsNotReportedAfterAFailedTimedLockOfAnother) {
    EXPECT_TRUE(After([](checked_mutex& mutex) {
                    mutex.lock();
                    OnAnotherThread([&] { EXPECT_FALSE(mutex.timed_lock(TimePoint::min())); });
                }).empty());
}

TEST_F(DestroyedCheckedMutex, IsReportedWhenASuccessFollowsAFailure) {
    EXPECT_EQ(After([](checked_mutex& mutex) {
                  mutex.lock();
                  EXPECT_FALSE(mutex.try_lock());
                  mutex.unlock();
                  mutex.lock();
              }).size(),
              1U);
}

TEST_F(DestroyedCheckedMutex, IsDestroyedWholeThroughItsBase) {
    struct Derived : checked_mutex {
        explicit Derived(bool& isDestroyed) : destroyed(isDestroyed) {}
        ~Derived() override { destroyed = true; }
        bool& destroyed;
    };
    bool destroyed = false;
    std::unique_ptr<checked_mutex> mutex = std::make_unique<Derived>(destroyed);
    mutex.reset();
    EXPECT_TRUE(destroyed);
}

}  // namespace
