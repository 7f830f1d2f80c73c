// The timed locks of fifo_mutex: deadlines, time-outs, and the moment at which both happen.

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <thread>
#include <vector>

#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/stopwatch.h"
#include "tests/sync/line_of_tasks.h"
#include "tests/sync/others.h"
#include "tests/sync/queued_task.h"
#include "tests/sync/wall_clock.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// A clock of a user: its own epoch, ticks of 3 ms in floating point.
struct OwnClock {
    using duration = std::chrono::duration<double, std::ratio<3, 1000>>;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<OwnClock>;
    static constexpr bool is_steady = true;

    static time_point now() {
        static const Stopwatch stopwatch;
        return time_point(duration(-1e6) + stopwatch.Elapsed());
    }
};

// What `wait` returns on another thread while the mutex is owned; nothing if it does not return at once.
template <typename Wait>
std::optional<bool> ResultOfAWaitInVain(Wait wait) {
    fifo_mutex mutex;
    mutex.lock();
    std::optional<bool> result;
    TaskThread waiter([&] { result = wait(mutex); });
    const bool ended = Eventually([&] { return !waiter.IsRunning(); }, 10s);
    waiter.Cancel();
    waiter.Join();
    return ended ? result : std::nullopt;
}

// What `wait` returns when it comes to wait, and the mutex is handed over some time later.
template <typename Wait>
bool ResultOfAWaitThatIsServed(Wait wait) {
    fifo_mutex mutex;
    mutex.lock();
    bool result = false;
    QueuedTask waiter(mutex, [&] {
        result = wait(mutex);
        if (result) {
            mutex.unlock();
        }
    });
    std::this_thread::sleep_for(30ms);
    mutex.unlock();
    waiter->Join();
    return result && IsFreeForOthers(mutex);
}

TEST(FifoMutex, TakesAFreeMutexThoughTheTimeHasPassed) {
    for (const TimePoint& past : PastTimePoints()) {
        fifo_mutex mutex;
        EXPECT_TRUE(mutex.try_lock_until(past)) << past.time_since_epoch().count();
        EXPECT_FALSE(IsFreeForOthers(mutex));
        mutex.unlock();
    }
}

TEST(FifoMutex, TimesOutAtOnceWhenTheTimeHasPassed) {
    for (const TimePoint& past : PastTimePoints()) {
        EXPECT_EQ(ResultOfAWaitInVain([&](fifo_mutex& mutex) { return mutex.try_lock_until(past); }), false)
            << past.time_since_epoch().count();
    }
}

// The time has passed when it has come.
TEST(FifoMutex, TimesOutWhenTheClockStandsAtTheTime) {
    const TimePoint now = WallClockNow();
    const FakeWallClock clock(now);
    EXPECT_EQ(ResultOfAWaitInVain([&](fifo_mutex& mutex) { return mutex.try_lock_until(now); }), false);
}

TEST(FifoMutex, KeepsTheLineAsItWasWhenTheTimeHasPassed) {
    fifo_mutex mutex;
    mutex.lock();
    LineOfTasks line(mutex, 2);
    OnAnotherThread([&] { EXPECT_FALSE(mutex.try_lock_until(TimePoint::min())); });
    line.Append();
    mutex.unlock();
    line.Join();
    EXPECT_EQ(line.Order(), LineOfTasks::Turns({0, 1, 2}));
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST(FifoMutex, TimesOutNotBeforeTheTime) {
    fifo_mutex mutex;
    mutex.lock();
    OnAnotherThread([&] {
        const TimePoint deadline = WallClockNow() + 50ms;
        EXPECT_FALSE(mutex.try_lock_until(deadline));
        EXPECT_GE(WallClockNow(), deadline);
    });
    mutex.unlock();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST(FifoMutex, WaitsForDeadlinesInTheFarFuture) {
    for (const TimePoint& deadline :
         {WallClockNow() + 24h, TimePoint(std::chrono::hours(24 * 365 * 400)), TimePoint::max()}) {
        EXPECT_TRUE(ResultOfAWaitThatIsServed([&](fifo_mutex& mutex) { return mutex.try_lock_until(deadline); }))
            << deadline.time_since_epoch().count();
    }
}

TEST(FifoMutex, KeepsTheOrderOfTheOthersWhenSomeTimeOut) {
    fifo_mutex mutex;
    FakeWallClock clock;
    mutex.lock();
    const auto wait = [&, deadline = WallClockNow() + 1h] { EXPECT_FALSE(mutex.try_lock_until(deadline)); };
    LineOfTasks line(mutex, 0);
    QueuedTask first(mutex, wait);
    line.Append();
    QueuedTask middle(mutex, wait);
    line.Append();
    QueuedTask last(mutex, wait);

    clock.Advance(2h);
    WakeWaitersOf(mutex);
    for (QueuedTask* leaver : {&first, &middle, &last}) {
        EXPECT_TRUE((*leaver)->EndedNormally());
    }
    EXPECT_FALSE(IsFreeForOthers(mutex));
    EXPECT_TRUE(line.Order().empty());
    line.Append();
    mutex.unlock();
    line.Join();
    EXPECT_EQ(line.Order(), LineOfTasks::Turns({0, 1, 2}));
}

// A waiter that spins looks at the clock all the while.
TEST(FifoMutex, SleepsUntilItIsWokenOrTheTimeHasCome) {
    fifo_mutex mutex;
    const FakeWallClock clock;
    mutex.lock();
    QueuedTask waiter(mutex, [&, deadline = WallClockNow() + 1h] {
        EXPECT_TRUE(mutex.try_lock_until(deadline));
        mutex.unlock();
    });
    const long before = clock.Reads();
    std::this_thread::sleep_for(100ms);  // to show that nothing happens
    EXPECT_LE(clock.Reads() - before, 10);  // the waiter may have been on its way to its first sleep
    mutex.unlock();
    EXPECT_TRUE(waiter->EndedNormally());
}

// On purpose: who has timed out does not look whether the turn has come meanwhile.
TEST(FifoMutex, TimesOutEvenIfTheTurnCameAtThatMoment) {
    fifo_mutex mutex;
    FakeWallClock clock;
    mutex.lock();
    std::optional<bool> result;
    QueuedTask waiter(mutex, [&, deadline = WallClockNow() + 1h] { result = mutex.try_lock_until(deadline); });

    clock.Advance(2h);
    mutex.unlock();
    waiter->Join();
    EXPECT_EQ(result, false);
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST(FifoMutex, WaitsForADuration) {
    EXPECT_TRUE(ResultOfAWaitThatIsServed([](fifo_mutex& mutex) { return mutex.try_lock_for(1h); }));
    EXPECT_TRUE(ResultOfAWaitThatIsServed([](fifo_mutex& mutex) { return mutex.try_lock_for(3600.5s); }));

    fifo_mutex mutex;
    mutex.lock();
    OnAnotherThread([&] {
        const Stopwatch stopwatch;
        EXPECT_FALSE(mutex.try_lock_for(std::chrono::duration<double>(0.03)));
        EXPECT_GE(stopwatch.Elapsed(), 29ms);
    });
}

TEST(FifoMutex, TimesOutAtOnceAfterADurationThatIsNotPositive) {
    for (const std::chrono::nanoseconds duration : {0ns, -1ns, std::chrono::nanoseconds::min()}) {
        EXPECT_EQ(ResultOfAWaitInVain([&](fifo_mutex& mutex) { return mutex.try_lock_for(duration); }), false);
    }
    EXPECT_EQ(ResultOfAWaitInVain([](fifo_mutex& mutex) { return mutex.try_lock_for(std::chrono::hours::min()); }),
              false);
    using Seconds = std::chrono::duration<double>;
    EXPECT_EQ(ResultOfAWaitInVain([](fifo_mutex& mutex) { return mutex.try_lock_for(Seconds(-HUGE_VAL)); }), false);
    EXPECT_EQ(ResultOfAWaitInVain([](fifo_mutex& mutex) { return mutex.try_lock_for(Seconds(std::nan(""))); }), false);
}

TEST(FifoMutex, WaitsForTheLongestDurations) {
    using Seconds = std::chrono::duration<double>;
    EXPECT_TRUE(ResultOfAWaitThatIsServed([](fifo_mutex& mutex) { return mutex.try_lock_for(Duration::max()); }));
    EXPECT_TRUE(
        ResultOfAWaitThatIsServed([](fifo_mutex& mutex) { return mutex.try_lock_for(std::chrono::hours::max()); }));
    EXPECT_TRUE(ResultOfAWaitThatIsServed([](fifo_mutex& mutex) { return mutex.try_lock_for(Seconds(HUGE_VAL)); }));
    EXPECT_TRUE(ResultOfAWaitThatIsServed([](fifo_mutex& mutex) { return mutex.try_lock_for(Seconds(1e300)); }));
}

// Deadlines of the clock, near and at the ends of what its type can hold.
template <typename Clock, typename TimePoint = typename Clock::time_point>
void ExpectDeadlinesAreKept() {
    const auto wait = [](const TimePoint& deadline) {
        return [deadline](fifo_mutex& mutex) { return mutex.try_lock_until(deadline); };
    };
    using Ticks = typename TimePoint::duration;
    const auto in = [](auto time) { return std::chrono::time_point_cast<Ticks>(Clock::now() + time); };
    EXPECT_TRUE(ResultOfAWaitThatIsServed(wait(in(std::chrono::hours(3)))));
    EXPECT_TRUE(ResultOfAWaitThatIsServed(wait(TimePoint::max())));
    EXPECT_EQ(ResultOfAWaitInVain(wait(in(-std::chrono::hours(3)))), false);
    EXPECT_EQ(ResultOfAWaitInVain(wait(TimePoint::min())), false);
}

TEST(FifoMutex, KeepsDeadlinesOfTheSteadyClock) {
    ExpectDeadlinesAreKept<std::chrono::steady_clock>();
}

TEST(FifoMutex, KeepsDeadlinesOfTheSystemClockInItsOwnTicks) {
    ExpectDeadlinesAreKept<std::chrono::system_clock>();
}

TEST(FifoMutex, KeepsDeadlinesOfTheSystemClockInHours) {
    ExpectDeadlinesAreKept<std::chrono::system_clock, std::chrono::sys_time<std::chrono::hours>>();
}

TEST(FifoMutex, KeepsDeadlinesOfAClockOfItsUser) {
    ExpectDeadlinesAreKept<OwnClock>();
}

TEST(FifoMutex, TimesOutNotBeforeTheTimeOfAnotherClock) {
    fifo_mutex mutex;
    mutex.lock();
    OnAnotherThread([&] {
        const auto deadline = std::chrono::steady_clock::now() + 30ms;
        EXPECT_FALSE(mutex.try_lock_until(deadline));
        EXPECT_GE(std::chrono::steady_clock::now(), deadline - 1ms);
    });
}

}  // namespace
