#include "concurrency/base/condition.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <vector>

#include "tests/support/eventually.h"
#include "tests/support/stopwatch.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// With a mutex of each kind that the library has.
template <typename Mutex>
class ConditionTest : public testing::Test {
  protected:
    using Ranked = RankedMutex<Mutex, LockRank::Leaf>;

    // Sleeps until told, on a thread of its own.
    Thread StartSleeper() {
        return Thread([this] {
            RankedLock lock(m_mutex);
            ++m_sleepers;  // gives the mutex back only when it sleeps
            m_condition.wait(lock, [this] { return m_told; });
            ++m_awake;
        });
    }

    void AwaitSleepers(int count) {
        ASSERT_TRUE(Eventually([&] {
            const RankedLock lock(m_mutex);
            return m_sleepers == count;
        }));
    }

    Ranked m_mutex;
    Condition m_condition;
    int m_sleepers = 0;
    bool m_told = false;
    std::atomic<int> m_awake = 0;
};

using Mutexes = testing::Types<RecursiveMutex, std::recursive_mutex, std::mutex>;
TYPED_TEST_SUITE(ConditionTest, Mutexes);

TYPED_TEST(ConditionTest, ReturnsWhenTheTimeHasPassedAndOwnsTheLockAgain) {
    RankedLock lock(this->m_mutex);
    const Stopwatch stopwatch;
    this->m_condition.wait_for(lock, 20ms);

    EXPECT_GE(stopwatch.Elapsed(), 19ms);
    bool taken = true;
    Thread([&] { taken = this->m_mutex.try_lock(); }).join();
    EXPECT_FALSE(taken);
}

TYPED_TEST(ConditionTest, TakesTimesBelowAMillisecond) {
    RankedLock lock(this->m_mutex);
    const Stopwatch stopwatch;
    for (int round = 0; round < 20; ++round) {
        this->m_condition.wait_for(lock, 500us);
    }
    EXPECT_GE(stopwatch.Elapsed(), 9ms);
}

TYPED_TEST(ConditionTest, WakesASleeperThatWasToldUnderTheMutex) {
    const Thread sleeper = this->StartSleeper();
    this->AwaitSleepers(1);
    {
        const RankedLock lock(this->m_mutex);
        this->m_told = true;
    }
    this->m_condition.notify_one();

    EXPECT_TRUE(Eventually([&] { return this->m_awake == 1; }));
}

TYPED_TEST(ConditionTest, WakesAllWhoSleep) {
    std::vector<Thread> sleepers;
    for (int i = 0; i < 4; ++i) {
        sleepers.push_back(this->StartSleeper());
    }
    this->AwaitSleepers(4);
    {
        const RankedLock lock(this->m_mutex);
        this->m_told = true;
    }
    this->m_condition.notify_all();

    EXPECT_TRUE(Eventually([&] { return this->m_awake == 4; }));
}

TYPED_TEST(ConditionTest, EndsATimedWaitWhenNotified) {
    std::atomic<bool> woken = false;
    const Thread sleeper([&] {
        RankedLock lock(this->m_mutex);
        this->m_condition.wait_for(lock, 24h);
        woken = true;
    });

    EXPECT_TRUE(Eventually([&] {
        this->m_condition.notify_all();
        return woken.load();
    }));
}

TYPED_TEST(ConditionTest, LetsGoOfTheLockWhileItWaits) {
    RankedLock lock(this->m_mutex);
    const Thread notifier([&] {
        const RankedLock other(this->m_mutex);
        this->m_condition.notify_all();
    });
    const Stopwatch stopwatch;
    this->m_condition.wait_for(lock, 60s);

    EXPECT_LT(stopwatch.Elapsed(), 59s);
}

TYPED_TEST(ConditionTest, KnowsWhetherSomebodyWaits) {
    EXPECT_FALSE(this->m_condition.HasWaiters());
    {
        const Thread sleeper = this->StartSleeper();
        this->AwaitSleepers(1);
        const RankedLock lock(this->m_mutex);
        EXPECT_TRUE(this->m_condition.HasWaiters());
        this->m_told = true;
        this->m_condition.notify_one();
    }
    EXPECT_FALSE(this->m_condition.HasWaiters());
}

}  // namespace
