// What docs/scheduling.md shows and says, as a reader would try it.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace std::chrono_literals;
using namespace Zarvo::Test;
using Orvane::Schedule;
using Orvane::Tracker;

// Long enough for some periods of a few milliseconds, to show that nothing happens in them.
constexpr auto kSomePeriods = 60ms;

class SchedulingGuide : public testing::Test {
  protected:
    const Orvane::ConcurrencyLifetime m_lifetime;
    std::atomic<int> m_runs = 0;
};

TEST_F(SchedulingGuide, WaitLetsTheRunEndAndEndsTheSchedule) {
    Gate running;
    std::atomic<bool> ended = false;
    Tracker tracker = Schedule(L"Gentle", 0s, 5ms, [&] {
        ++m_runs;
        running.Open();
        std::this_thread::sleep_for(20ms);
        ended = true;
    });
    running.Wait();

    tracker.Wait();

    EXPECT_TRUE(ended);
    const int atTheEnd = m_runs;
    std::this_thread::sleep_for(kSomePeriods);
    EXPECT_EQ(m_runs, atTheEnd);
}

TEST_F(SchedulingGuide, WaitBetweenTwoRunsWaitsForTheNextOne) {
    const RecordedReports reports;
    Tracker tracker = Schedule(L"Patient", 0s, 500ms, [this] { ++m_runs; });
    ASSERT_TRUE(reports.WaitFor(L"Concurrency.Task",
                                L"Task [%s] stopped normally in thread [0x%x (%d)] of process [0x%x (%d)]"));

    tracker.Wait();

    EXPECT_GE(m_runs, 2);
}

TEST_F(SchedulingGuide, AMutableCallableBeginsEachRunAfresh) {
    std::atomic<int> highest = 0;
    const Tracker tracker = Schedule(L"Forgetful", 0s, 2ms, [this, &highest, count = 0]() mutable {
        highest = std::max<int>(highest, ++count);
        ++m_runs;
    });

    ASSERT_TRUE(Eventually([this] { return m_runs >= 3; }));
    EXPECT_EQ(highest, 1);
}

TEST_F(SchedulingGuide, AJobEndsItsScheduleWhenItCancelsItself) {
    Gate assigned;
    std::atomic<bool> passed = false;
    Tracker tracker;
    tracker = Schedule(L"Finite", 0s, 5ms, [&] {
        assigned.Wait();
        if (++m_runs == 2) {
            tracker.Cancel();
            passed = true;
        }
    });
    assigned.Open();

    ASSERT_TRUE(Eventually([this] { return m_runs == 2; }));
    std::this_thread::sleep_for(kSomePeriods);
    EXPECT_EQ(m_runs, 2);
    EXPECT_FALSE(passed) << "Cancel() throws inside the run";
}

TEST_F(SchedulingGuide, DroppingATrackerLetsGoOfTheCallableBeforeItsNextDueTime) {
    const auto held = std::make_shared<int>(0);
    {
        const Tracker tracker = Schedule(L"Holder", 0s, 1h, [this, held] { ++m_runs; });
        ASSERT_TRUE(Eventually([this] { return m_runs == 1; }));
        EXPECT_GT(held.use_count(), 1);
    }
    EXPECT_TRUE(Eventually([&held] { return held.use_count() == 1; }));
}

TEST_F(SchedulingGuide, ARecurrentTaskOfOnesOwnRunsOnce) {
    const Orvane::Internal::ScheduledTask task(Orvane::MakeTask(L"Own", [this] { ++m_runs; }), Orvane::TimePoint(),
                                               5ms);
    Orvane::Internal::GlobalScheduler::Insert(task);

    ASSERT_TRUE(Eventually([this] { return m_runs == 1; }));
    std::this_thread::sleep_for(kSomePeriods);
    EXPECT_EQ(m_runs, 1);
    Orvane::Internal::ScheduledTask(task).Cancel();
}

TEST_F(SchedulingGuide, ATrackerOfOnesOwnChangesNothingAboutThat) {
    const Orvane::Internal::ScheduledTask task(Orvane::MakeTask(L"Own", [this] { ++m_runs; }), Orvane::TimePoint(),
                                               5ms);
    Tracker tracker;
    tracker.SetTask(task);
    Orvane::Internal::GlobalScheduler::Insert(task);

    ASSERT_TRUE(Eventually([this] { return m_runs == 1; }));
    std::this_thread::sleep_for(kSomePeriods);
    EXPECT_EQ(m_runs, 1);
}

TEST_F(SchedulingGuide, TheOutcomeOfAOneShotIsInItsFuture) {
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> outcome;
    auto report = Orvane::MakeTask(L"Report", [this] { ++m_runs; }, outcome);
    const auto start = std::chrono::time_point_cast<Orvane::Duration>(std::chrono::system_clock::now() + 5ms);

    Orvane::Internal::GlobalScheduler::Insert({report, start, Orvane::Duration::zero()});

    outcome->GetValue();

    EXPECT_EQ(m_runs, 1);
}

}  // namespace
