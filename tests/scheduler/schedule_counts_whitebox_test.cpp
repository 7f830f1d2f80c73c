#include "concurrency/scheduler/schedule_counts.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/traced_schedule.h"
#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"
#include "tests/scheduler/probe_task.h"
#include "tests/support/eventually.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class ScheduleCountsTest : public testing::Test {
  protected:
    // Since the beginning of the test.
    std::uint64_t Turns() const { return CopyScheduleCounts().lateness.Count() - m_before.lateness.Count(); }
    std::chrono::nanoseconds Late() const {
        return std::chrono::nanoseconds(CopyScheduleCounts().lateness.Sum() - m_before.lateness.Sum());
    }
    std::uint64_t Skips() const { return CopyScheduleCounts().skips - m_before.skips; }

    const ScheduleCounts m_before = CopyScheduleCounts();
    const TimePoint m_now = Now();
};

TEST(ScheduleCounts, AreZeroAtFirst) {
    EXPECT_EQ(ScheduleCounts().skips, 0U);
    EXPECT_EQ(ScheduleCounts().lateness.Count(), 0U);
}

TEST_F(ScheduleCountsTest, HaveHowLateATurnWas) {
    CountDue(m_now - 3ms, m_now);
    CountDue(m_now, m_now);
    EXPECT_EQ(Turns(), 2U);
    EXPECT_EQ(Late(), 3ms);
}

TEST_F(ScheduleCountsTest, HaveATurnBeforeItsStartAsInTime) {
    CountDue(m_now + 1h, m_now);  // the clock was set back
    EXPECT_EQ(Turns(), 1U);
    EXPECT_EQ(Late(), 0ns);
}

// Such a start meant "now".
TEST_F(ScheduleCountsTest, LeaveOutStartsOfMoreThanADayAgo) {
    CountDue(m_now - 24h - kTick, m_now);
    CountDue(k1970, m_now);
    EXPECT_EQ(Turns(), 0U);
    CountDue(m_now - 24h, m_now);
    EXPECT_EQ(Turns(), 1U);
    EXPECT_EQ(Late(), 24h);
}

TEST_F(ScheduleCountsTest, HaveTheTurnsOfTheScheduler) {
    const ConcurrencyLifetime lifetime;
    Task task = MakeTask(L"due", [] {});
    GlobalScheduler::Insert(ScheduledTask(task, m_now, kOnce));
    task.Wait();
    EXPECT_EQ(Turns(), 1U);
    EXPECT_EQ(Skips(), 0U);
}

TEST_F(ScheduleCountsTest, HaveWhatTheSchedulerSkips) {
    const ConcurrencyLifetime lifetime;
    const Probe probe;
    probe->busy = true;
    GlobalScheduler::Insert(ScheduledTask(probe.MakeTask(L"busy"), k1970, kOnce));
    EXPECT_TRUE(Eventually([this] { return Skips() == 1; }));
}

TEST(ReadSchedule, SaysWhatStandsInTheScheduleOfTheProcess) {
    const TimePoint start = Now() + 1h;
    EXPECT_EQ(ReadSchedule().entries, 0U);
    const ConcurrencyLifetime lifetime;
    Task task = MakeTask(L"later", [] {});
    GlobalScheduler::Insert(ScheduledTask(task, start, kOnce));
    EXPECT_EQ(ReadSchedule().entries, 1U);
    EXPECT_EQ(ReadSchedule().earliest, start);
    task.Cancel();
}

// For the trace, in microseconds. Both may lie as far apart as time reaches.
TEST(TracedLateness, IsZeroBeforeTheStartAndExactAfterIt) {
    const TimePoint now = Now();
    EXPECT_EQ(MicrosecondsSince(now - 3ms, now), 3000);
    EXPECT_EQ(MicrosecondsSince(now, now), 0);
    EXPECT_EQ(MicrosecondsSince(now + 1h, now), 0);
    EXPECT_EQ(MicrosecondsSince((TimePoint::min)(), (TimePoint::max)()), 1'844'674'407'370'955'161);
}

}  // namespace
