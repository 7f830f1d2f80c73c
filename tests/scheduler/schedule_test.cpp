#include "concurrency/scheduler/schedule.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <system_error>
#include <thread>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/eventually.h"
#include "tests/support/import_patch.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class ScheduleCall : public testing::Test {
  protected:
    const ConcurrencyLifetime m_lifetime;
    std::atomic<int> m_runs = 0;

    auto CountRuns() {
        return [this] { ++m_runs; };
    }
};

TEST_F(ScheduleCall, RunsOnceForIntervalZero) {
    Tracker tracker = Schedule(L"Once", 0s, 0s, CountRuns());

    tracker.Wait();

    EXPECT_EQ(m_runs, 1);
    std::this_thread::sleep_for(50ms);  // to show that nothing happens
    EXPECT_EQ(m_runs, 1);
}

TEST_F(ScheduleCall, StartsAtAPointInTime) {
    const auto start = std::chrono::system_clock::now() + 30ms;
    std::atomic<bool> early = false;
    Tracker tracker = Schedule(L"At", start, 0s, [&] { early = std::chrono::system_clock::now() < start; });

    tracker.Wait();

    EXPECT_FALSE(early);
}

TEST_F(ScheduleCall, StartsAfterADelay) {
    const auto start = std::chrono::system_clock::now() + 30ms;
    std::atomic<bool> early = false;
    Tracker tracker = Schedule(L"After", 30ms, 0s, [&] { early = std::chrono::system_clock::now() < start; });

    tracker.Wait();

    EXPECT_FALSE(early);
}

TEST_F(ScheduleCall, SaturatesWhatReachesBeyondTheEndsOfTime) {
    const Tracker never = Schedule(L"Never", std::chrono::hours::max(), 0s, CountRuns());
    const Tracker neverEither = Schedule(L"Never", std::chrono::system_clock::time_point::max(), 0s, CountRuns());
    const Tracker longOverdue = Schedule(L"Overdue", std::chrono::hours::min(), 0s, CountRuns());

    ASSERT_TRUE(Eventually([&] { return m_runs >= 1; }));
    std::this_thread::sleep_for(50ms);  // to show that nothing happens
    EXPECT_EQ(m_runs, 1);
}

TEST_F(ScheduleCall, NeverRunsASecondTimeWhenTheIntervalPassesTheEndOfTime) {
    const Tracker tracker = Schedule(L"Once", 0s, std::chrono::hours::max(), CountRuns());

    ASSERT_TRUE(Eventually([&] { return m_runs >= 1; }));
    std::this_thread::sleep_for(50ms);  // to show that nothing happens
    EXPECT_EQ(m_runs, 1);
}

TEST_F(ScheduleCall, KeepsTheCallableNoLongerThanTheTracker) {
    const auto held = std::make_shared<std::atomic<int>>(0);
    {
        const Tracker tracker = Schedule(L"Holder", 0s, 1ms, [held] { ++*held; });
        ASSERT_TRUE(Eventually([&] { return *held >= 2; }));
    }
    // The scheduler's own copy leaves the queue at its next due time.
    EXPECT_TRUE(Eventually([&] { return held.use_count() == 1; }));
}

TEST_F(ScheduleCall, LetsGoOfTheCallableWithTheTrackerThoughItIsDueMuchLater) {
    const auto held = std::make_shared<int>(0);
    {
        const Tracker tracker = Schedule(L"Later", 1h, 0s, [held] {});
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(ScheduleCall, ACallThatThrowsDoesNotEndTheSchedule) {
    const Tracker tracker = Schedule(L"Thrower", 0s, 2ms, [this] {
        ++m_runs;
        throw CancelledException();
    });

    EXPECT_TRUE(Eventually([&] { return m_runs >= 3; }));
}

TEST_F(ScheduleCall, ThrowsAndSchedulesNothingWhenTheSchedulerCannotStart) {
    {
        const ImportPatch noThreads(
            LibraryUnderTest(), "_beginthreadex",
            +[](void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*) -> std::uintptr_t {
                return 0;
            });
        EXPECT_THROW(static_cast<void>(Schedule(L"Lost", 0s, 0s, CountRuns())), std::system_error);
    }
    Tracker tracker = Schedule(L"Found", 0s, 0s, CountRuns());
    tracker.Wait();
    EXPECT_EQ(m_runs, 1);
}

}  // namespace
