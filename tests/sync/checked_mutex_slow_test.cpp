// The three seconds after which a wait is suspicious, in real time.

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "concurrency/sync/checked_mutex.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/stopwatch.h"
#include "tests/support/task_thread.h"
#include "tests/sync/others.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr const wchar_t* kCategory = L"checked_mutex::lock";
constexpr const wchar_t* kFormat = L"Failed to lock mutex within %d seconds";

// A task that locks and unlocks, and how long the lock took.
class TimedLocker {
  public:
    explicit TimedLocker(checked_mutex& mutex)
        : m_thread([this, &mutex] {
              const Stopwatch stopwatch;
              mutex.lock();
              m_waited = stopwatch.Elapsed();
              mutex.unlock();
          }) {}

    bool IsRunning() const { return m_thread.IsRunning(); }

    std::chrono::nanoseconds Waited() {
        m_thread.Join();
        return m_waited;
    }

  private:
    std::chrono::nanoseconds m_waited{};
    TaskThread m_thread;
};

TEST(CheckedMutex, IsTakenAfterFiveSecondsWithOneReport) {
    const RecordedReports reports;
    checked_mutex mutex;
    mutex.lock();
    const Stopwatch held;
    TimedLocker waiter(mutex);
    ASSERT_TRUE(reports.WaitFor(kCategory, kFormat));
    EXPECT_GE(held.Elapsed(), 3s);
    EXPECT_TRUE(waiter.IsRunning());
    std::this_thread::sleep_for(5s - held.Elapsed());
    EXPECT_TRUE(waiter.IsRunning());
    mutex.unlock();

    // The waiter may have begun a little later than the stopwatch.
    EXPECT_GE(waiter.Waited(), 4s);
    const auto records = reports.Matching(kCategory);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].severity, 4);
    EXPECT_EQ(records[0].kind, 16);
    EXPECT_EQ(records[0].format, kFormat);
    EXPECT_EQ(records[0].arguments, Arguments(3));
    EXPECT_EQ(records[0].text, L"Failed to lock mutex within 3 seconds");
}

TEST(CheckedMutex, ReportsALockOnlyOnceHoweverLongItWaits) {
    const RecordedReports reports;
    checked_mutex mutex;
    mutex.lock();
    TimedLocker waiter(mutex);
    std::this_thread::sleep_for(10s);
    EXPECT_TRUE(waiter.IsRunning());
    mutex.unlock();
    // The waiter may have begun a little later.
    EXPECT_GE(waiter.Waited(), 9s);
    EXPECT_EQ(reports.Count(kCategory), 1U);
}

TEST(CheckedMutex, ReportsEachLockThatWaitsTooLong) {
    const RecordedReports reports;
    checked_mutex mutex;
    mutex.lock();
    TimedLocker first(mutex);
    TimedLocker second(mutex);
    EXPECT_TRUE(reports.WaitFor(kCategory, kFormat, 2));
    mutex.unlock();
    first.Waited();
    second.Waited();
    EXPECT_EQ(reports.Count(kCategory), 2U);
}

TEST(CheckedMutex, SaysNothingAboutAWaitOfLessThanThreeSeconds) {
    const RecordedReports reports;
    checked_mutex mutex;
    mutex.lock();
    TimedLocker waiter(mutex);
    std::this_thread::sleep_for(2s);
    mutex.unlock();
    if (waiter.Waited() >= 3s) {
        GTEST_SKIP() << "the machine was too busy to hold the mutex for so short a time";
    }
    EXPECT_EQ(reports.Count(kCategory), 0U);
}

// A deadlock with oneself: only another thread can end it.
TEST(CheckedMutex, ReportsTheSecondLockOfItsHolderAndWaitsOn) {
    const RecordedReports reports;
    checked_mutex mutex;
    TaskThread holder([&] {
        mutex.lock();
        mutex.lock();
        mutex.unlock();
    });
    ASSERT_TRUE(reports.WaitFor(kCategory, kFormat));
    std::this_thread::sleep_for(500ms);
    EXPECT_TRUE(holder.IsRunning());

    mutex.unlock();
    EXPECT_TRUE(holder.EndedNormally());
    EXPECT_EQ(reports.Count(kCategory), 1U);
}

TEST(CheckedMutex, DoesNotReportATimedLockThatTimesOutAfterMoreThanThreeSeconds) {
    const RecordedReports reports;
    checked_mutex mutex;
    mutex.lock();
    OnAnotherThread([&] {
        const auto now = std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
        EXPECT_FALSE(mutex.timed_lock(now + 3500ms));
    });
    mutex.unlock();
    EXPECT_TRUE(reports.Matching(kCategory).empty());
}

}  // namespace
