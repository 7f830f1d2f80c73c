#include "concurrency/base/wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

#include "concurrency/base/clock.h"
#include "concurrency/base/time.h"
#include "tests/support/eventually.h"
#include "tests/support/stopwatch.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// A clock that stands still until the condition below is slept on.
struct FakeClock {
    using duration = Duration;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = TimePoint;
    static constexpr bool is_steady = false;

    static inline time_point g_now;
    static time_point now() noexcept { return g_now; }
};

struct FakeLock {};

// Notes how long each sleep was to be. A sleep takes that time, unless it is cut short.
struct FakeCondition {
    std::vector<Duration> slices;
    std::size_t sleepsCutShort = 0;  // the first so many

    std::cv_status wait_for(FakeLock&, Duration slice) {
        slices.push_back(slice);
        if (slices.size() > sleepsCutShort) {
            FakeClock::g_now += slice;
        }
        return std::cv_status::timeout;  // which is never to be believed
    }
};

class WaitUntilTest : public testing::Test {
  protected:
    static constexpr TimePoint kNow{Duration(17'987'616'000'000'000)};

    void SetUp() override { FakeClock::g_now = kNow; }

    template <typename Predicate>
    bool Wait(const TimePoint& deadline, Predicate ready) {
        return WaitUntil<FakeClock>(m_condition, m_lock, deadline, ready);
    }

    FakeCondition m_condition;
    FakeLock m_lock;
};

TEST_F(WaitUntilTest, DoesNotSleepWhenThePredicateHolds) {
    int tested = 0;

    EXPECT_TRUE(Wait(kNow + 1s, [&] { return ++tested > 0; }));
    EXPECT_EQ(tested, 1);
    EXPECT_TRUE(m_condition.slices.empty());
}

TEST_F(WaitUntilTest, PastDeadlineCostsOneTestAndNoSleep) {
    for (const TimePoint deadline : {kNow - Duration(1), TimePoint(Duration(-1)), TimePoint::min(), kNow}) {
        int tested = 0;

        EXPECT_FALSE(Wait(deadline, [&] { return ++tested < 0; }));
        EXPECT_EQ(tested, 1);
        EXPECT_TRUE(m_condition.slices.empty());
    }
}

TEST_F(WaitUntilTest, PredicateThatHoldsBeatsAPastDeadline) {
    EXPECT_TRUE(Wait(TimePoint::min(), [] { return true; }));
}

TEST_F(WaitUntilTest, TimesOutWhenTheClockReachesTheDeadline) {
    EXPECT_FALSE(Wait(kNow + 30s, [] { return false; }));
    EXPECT_EQ(m_condition.slices, std::vector<Duration>({30s}));
    EXPECT_EQ(FakeClock::g_now, kNow + 30s);
}

TEST_F(WaitUntilTest, PredicateIsTestedOnceMoreAtTheDeadline) {
    int tested = 0;

    EXPECT_TRUE(Wait(kNow + 1s, [&] { return ++tested == 2; }));
}

TEST_F(WaitUntilTest, AbsorbsWakeUpsForNoReason) {
    m_condition.sleepsCutShort = 3;

    EXPECT_FALSE(Wait(kNow + 1s, [] { return false; }));
    EXPECT_EQ(m_condition.slices, std::vector<Duration>(4, 1s));
}

TEST_F(WaitUntilTest, EndsAtTheWakeUpThatMakesThePredicateHold) {
    m_condition.sleepsCutShort = 100;
    int tested = 0;

    EXPECT_TRUE(Wait(kNow + 1s, [&] { return ++tested == 6; }));
    EXPECT_EQ(m_condition.slices.size(), 5U);
}

TEST_F(WaitUntilTest, SleepsTheRestOfTheTimeAfterAnEarlyWakeUp) {
    int tested = 0;
    m_condition.sleepsCutShort = 1;

    EXPECT_FALSE(Wait(kNow + 10s, [&] {
        if (++tested == 2) {
            FakeClock::g_now += 4s;
        }
        return false;
    }));
    EXPECT_EQ(m_condition.slices, std::vector<Duration>({10s, 6s}));
}

TEST_F(WaitUntilTest, SleepsInSlicesOfAtMostADay) {
    EXPECT_FALSE(Wait(kNow + 60h, [] { return false; }));
    EXPECT_EQ(m_condition.slices, std::vector<Duration>({24h, 24h, 12h}));
}

TEST_F(WaitUntilTest, FarthestDeadlineIsNeverReachedByAccident) {
    int tested = 0;

    EXPECT_TRUE(Wait(TimePoint::max(), [&] { return ++tested == 1'000; }));
    EXPECT_EQ(m_condition.slices, std::vector<Duration>(999, 24h));
}

TEST_F(WaitUntilTest, ClockThatStepsBackProlongsTheWait) {
    int tested = 0;
    m_condition.sleepsCutShort = 1;

    EXPECT_FALSE(Wait(kNow + 1h, [&] {
        if (++tested == 2) {
            FakeClock::g_now -= 1h;
        }
        return false;
    }));
    EXPECT_EQ(m_condition.slices, std::vector<Duration>({1h, 2h}));
}

TEST(NextSlice, SpansTheWholeRangeWithoutOverflow) {
    FakeClock::g_now = TimePoint::min();
    EXPECT_EQ(NextSlice<FakeClock>(TimePoint::max()), Duration(24h));
    EXPECT_EQ(NextSlice<FakeClock>(TimePoint::min()), Duration::zero());
    EXPECT_EQ(NextSlice<FakeClock>(TimePoint::min() + Duration(1)), Duration(1));

    FakeClock::g_now = TimePoint::max();
    EXPECT_EQ(NextSlice<FakeClock>(TimePoint::max()), Duration::zero());
    EXPECT_EQ(NextSlice<FakeClock>(TimePoint::min()), Duration::zero());

    FakeClock::g_now = TimePoint();
    EXPECT_EQ(NextSlice<FakeClock>(TimePoint::max()), Duration(24h));
    EXPECT_EQ(NextSlice<FakeClock>(TimePoint::min()), Duration::zero());
}

// The same with the platform's condition, where the standard library's own timed waits go wrong.
class RealWaitTest : public testing::Test {
  protected:
    std::recursive_mutex m_mutex;
    std::condition_variable_any m_condition;
};

TEST_F(RealWaitTest, PastDeadlinesReturnAtOnce) {
    std::unique_lock lock(m_mutex);
    const TimePoint in1969 = std::chrono::sys_days(std::chrono::July / 20 / 1969);
    for (const TimePoint deadline : {in1969, TimePoint::min(), TimePoint(), WallClock::now()}) {
        int tested = 0;

        EXPECT_FALSE(WaitUntil<WallClock>(m_condition, lock, deadline, [&] { return ++tested < 0; }));
        EXPECT_EQ(tested, 1);
    }
}

TEST_F(RealWaitTest, NeverReturnsEarly) {
    std::unique_lock lock(m_mutex);
    const Stopwatch stopwatch;
    const auto deadline = MonotonicClock::now() + 20ms;

    EXPECT_FALSE(WaitUntil<MonotonicClock>(m_condition, lock, deadline, [] { return false; }));
    EXPECT_GE(MonotonicClock::now(), deadline);
    EXPECT_GE(stopwatch.Elapsed(), 20ms);
}

TEST_F(RealWaitTest, FarthestDeadlineWaitsForTheNotification) {
    for (const TimePoint deadline :
         {TimePoint::max(), TimePoint(std::chrono::sys_days(std::chrono::January / 1 / 2263))}) {
        bool ready = false;
        bool waiting = false;
        Thread notifier([&] {
            EXPECT_TRUE(Eventually([&] {
                const std::lock_guard lock(m_mutex);
                return waiting;
            }));
            const std::lock_guard lock(m_mutex);
            ready = true;
            m_condition.notify_all();
        });
        std::unique_lock lock(m_mutex);
        waiting = true;

        EXPECT_TRUE(WaitUntil<WallClock>(m_condition, lock, deadline, [&] { return ready; }));
        EXPECT_TRUE(lock.owns_lock());
        lock.unlock();
    }
}

TEST_F(RealWaitTest, FarthestDeadlineHoldsTheWaiterBack) {
    bool ready = false;
    std::atomic<bool> returned = false;
    Thread waiter([&] {
        std::unique_lock lock(m_mutex);
        EXPECT_TRUE(WaitUntil<WallClock>(m_condition, lock, TimePoint::max(), [&] { return ready; }));
        returned = true;
    });

    EXPECT_FALSE(Eventually([&] { return returned.load(); }, 100ms));
    {
        const std::lock_guard lock(m_mutex);
        ready = true;
        m_condition.notify_all();
    }
    EXPECT_TRUE(Eventually([&] { return returned.load(); }));
}

}  // namespace
