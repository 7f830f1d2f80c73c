#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_ticks.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/standard_sleeps.h"
#include "tests/support/stopwatch.h"
#include "tests/support/task_thread.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/held_worker.h"
#include "tests/threadpool/pool_numbers.h"
#include "tests/threadpool/task_records.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr int kSecondFull = 14;  // the same once it has grown to sixteen

const auto kQueue = &GlobalThreadPool::Queue;

bool HaveStarted(const ThreadStarts& starts, int count) {
    return Eventually([&] { return starts.Count() == count; });
}

TEST(ThreadPoolGrowth, SixLongTasksDoNotGrowThePool) {
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull, kQueue));
    Sleep(100);
    EXPECT_EQ(starts.Count(), kBatch);
}

TEST(ThreadPoolGrowth, SeventhLongTaskGrowsThePoolToSixteen) {
    const RecordedReports reports;
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull + 1, kQueue));
    EXPECT_TRUE(HaveStarted(starts, 2 * kBatch));
    EXPECT_TRUE(Eventually([&] { return CountTasks(reports, kStopped, kGrowthTask) == 1; }));

    // From now on sixteen tasks run at the same time, less the spare ones that call for more.
    ASSERT_TRUE(held.Start(kSecondFull - kFirstFull - 1, kQueue));
    EXPECT_EQ(starts.Count(), 2 * kBatch);
    EXPECT_EQ(CountTasks(reports, kStarted, kGrowthTask), 1);
}

// Six workers are busy and one is held where it does not count: the one that is left takes one task after the other.
TEST(ThreadPoolGrowth, GrowthRunsBeforeTheTaskThatCausedIt) {
    const RecordedReports reports;
    const ConcurrencyLifetime lifetime;
    HeldWorker worker(kQueue);
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull, kQueue));
    GlobalThreadPool::Queue(MakeTask(L"seventh", [] {}));
    ASSERT_TRUE(Eventually([&] { return CountTasks(reports, kStarted, L"seventh") == 1; }));

    const auto names = TaskNames(reports, kStarted);
    const auto growth = std::find(names.begin(), names.end(), kGrowthTask);
    const auto seventh = std::find(names.begin(), names.end(), L"seventh");
    EXPECT_LT(std::distance(names.begin(), growth), std::distance(names.begin(), seventh));
}

// As above, but nobody is left, and a task waits in the queue already.
TEST(ThreadPoolGrowth, GrowthOvertakesWhatIsQueuedAlready) {
    const RecordedReports reports;
    const ConcurrencyLifetime lifetime;
    HeldWorker first(kQueue);
    HeldWorker second(kQueue);
    HeldWorker third(kQueue);
    HeldTasks held;
    HeldTasks oneMore;
    ASSERT_TRUE(held.Start(kFirstFull - 2, kQueue));
    ASSERT_TRUE(oneMore.Start(1, kQueue));
    GlobalThreadPool::Queue(MakeTask(L"waits", [] {}));
    GlobalThreadPool::Queue(MakeTask(L"causes the growth", [] {}));
    oneMore.Release();
    ASSERT_TRUE(Eventually([&] { return CountTasks(reports, kStarted, L"causes the growth") == 1; }));
    ASSERT_TRUE(Eventually([&] { return CountTasks(reports, kStarted, L"waits") == 1; }));

    const auto names = TaskNames(reports, kStarted);
    const auto growth = std::find(names.begin(), names.end(), kGrowthTask);
    const auto waits = std::find(names.begin(), names.end(), L"waits");
    EXPECT_LT(std::distance(names.begin(), growth), std::distance(names.begin(), waits));
}

// All eight workers are taken, so the growth that is decided does not even begin.
TEST(ThreadPoolGrowth, OtherCallersWaitFromTheDecisionOn) {
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldWorker first(kQueue);
    HeldWorker second(kQueue);
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull, kQueue));
    GlobalThreadPool::Queue(held.Make());
    const BackgroundCall other([&] { GlobalThreadPool::Queue(held.Make()); });
    const BackgroundCall another([&] { GlobalThreadPool::Queue(held.Make()); });
    Sleep(400);  // longer than a growth period
    EXPECT_TRUE(other.IsRunning());
    EXPECT_TRUE(another.IsRunning());
    EXPECT_EQ(starts.Count(), kBatch);
    first.Release();
    EXPECT_TRUE(other.Ends());
    EXPECT_TRUE(another.Ends());
    EXPECT_TRUE(HaveStarted(starts, 2 * kBatch));
}

// The queuing caller starts no threads itself, and until the new workers are there the other callers wait.
TEST(ThreadPoolGrowth, OtherCallersWaitUntilTheNewWorkersAreThere) {
    Gate growthMayGoOn;
    ThreadStarts starts;
    starts.Before([&](int number) {
        if (number > kBatch) {
            growthMayGoOn.Wait();
        }
    });
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull, kQueue));
    GlobalThreadPool::Queue(held.Make());  // not waited for: the one worker that it wakes may take the growth first
    const BackgroundCall other([&] { GlobalThreadPool::Queue(held.Make()); });
    Sleep(100);
    EXPECT_TRUE(other.IsRunning());
    growthMayGoOn.Open();
    EXPECT_TRUE(other.Ends());
    EXPECT_TRUE(HaveStarted(starts, 2 * kBatch));
}

TEST(ThreadPoolGrowth, PoolDoesNotShrinkWhenItsWorkersAreIdle) {
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    {
        HeldTasks first;
        ASSERT_TRUE(first.Start(kFirstFull + 1, kQueue));
        ASSERT_TRUE(HaveStarted(starts, 2 * kBatch));
    }
    Sleep(300);  // longer than the growth period: the pool could have changed
    HeldTasks second;
    ASSERT_TRUE(second.Start(kSecondFull, kQueue));
    EXPECT_EQ(starts.Count(), 2 * kBatch);
}

// What the sleeps with an end of the constructing thread ask of the platform.
class AskedSleeps {
  public:
    AskedSleeps() {
        s_thread = GetCurrentThreadId();
        s_longest = 0;
    }
    AskedSleeps(const AskedSleeps&) = delete;
    AskedSleeps& operator=(const AskedSleeps&) = delete;

    // Units: milliseconds.
    DWORD Longest() const { return s_longest; }

  private:
    static bool Sleep(DWORD milliseconds) {
        if (milliseconds != INFINITE && GetCurrentThreadId() == s_thread) {
            s_longest = std::max(s_longest.load(), milliseconds);
        }
        return true;
    }

    static inline std::atomic<DWORD> s_thread = 0;
    static inline std::atomic<DWORD> s_longest = 0;

    const StandardSleeps m_sleeps{&Sleep};
};

TEST(ThreadPoolGrowth, SleepAsksForNoMoreThanTheRestOfThePeriod) {
    FakeTicks ticks(100'000);
    const AskedSleeps asked;
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(kSecondFull, kQueue));
    ticks.Advance(100);
    ASSERT_TRUE(held.Start(1, kQueue));
    EXPECT_GT(asked.Longest(), 0U);
    EXPECT_LE(asked.Longest(), 150U + 16U);  // the platform's clock advances in steps
}

// A queuing task that was cancelled: the growth sleep throws at once, and anything else does not. So it tells, without
// a look at the clock, whether Queue() sleeps.
class GrowthSleep : public testing::Test {
  protected:
    static constexpr DWORD kStart = 0xFFFF'FF80;  // the count wraps soon after

    // Queues `task` from a cancelled task. Returns whether that was refused.
    static bool SleepsBeforeQueuing(const Task& task) {
        Gate cancelled;
        TaskThread caller([&] {
            cancelled.Wait();
            GlobalThreadPool::Queue(task);
        });
        caller.Cancel();
        cancelled.Open();
        return caller.EndedCancelled();
    }

    FakeTicks m_ticks{kStart};
    const ThreadStarts m_starts;
    const ConcurrencyLifetime m_lifetime;
    HeldTasks m_held;
};

TEST_F(GrowthSleep, FirstGrowthDoesNotSleep) {
    ASSERT_TRUE(m_held.Start(kFirstFull, kQueue));
    EXPECT_FALSE(SleepsBeforeQueuing(m_held.Make()));
    EXPECT_TRUE(HaveStarted(m_starts, 2 * kBatch));
}

TEST_F(GrowthSleep, NoSleepWithoutGrowth) {
    ASSERT_TRUE(m_held.Start(kFirstFull + 1, kQueue));
    EXPECT_FALSE(SleepsBeforeQueuing(m_held.Make()));
}

TEST_F(GrowthSleep, GrowthSleepsWhenTheLastWas249MillisecondsAgo) {
    ASSERT_TRUE(m_held.Start(kSecondFull, kQueue));
    m_ticks.Advance(249);
    EXPECT_TRUE(SleepsBeforeQueuing(m_held.Make()));
}

TEST_F(GrowthSleep, GrowthDoesNotSleepWhenTheLastWas250MillisecondsAgoEvenAcrossTheWrap) {
    ASSERT_TRUE(m_held.Start(kSecondFull, kQueue));
    m_ticks.Advance(250);
    EXPECT_FALSE(SleepsBeforeQueuing(m_held.Make()));
    EXPECT_TRUE(HaveStarted(m_starts, 3 * kBatch));
}

TEST_F(GrowthSleep, CallerCancelledInTheSleepQueuesNothingAndThePoolGoesOn) {
    const RecordedReports reports;
    ASSERT_TRUE(m_held.Start(kSecondFull, kQueue));
    ASSERT_EQ(CountTasks(reports, kStarted, kGrowthTask), 1);
    std::atomic<bool> ran = false;
    const Task refused = MakeTask(L"refused", [&] { ran = true; });
    EXPECT_TRUE(SleepsBeforeQueuing(refused));
    EXPECT_FALSE(GlobalThreadPool::IsPresent(refused));
    EXPECT_EQ(m_starts.Count(), 2 * kBatch);

    // The same growth, asked for by another thread.
    m_ticks.Advance(250);
    const BackgroundCall other([&] { GlobalThreadPool::Queue(m_held.Make(L"accepted")); });
    EXPECT_TRUE(other.Ends());
    EXPECT_TRUE(Eventually([&] { return CountTasks(reports, kStarted, L"accepted") == 1; }));
    EXPECT_TRUE(HaveStarted(m_starts, 3 * kBatch));
    EXPECT_EQ(CountTasks(reports, kStarted, kGrowthTask), 2);
    EXPECT_FALSE(GlobalThreadPool::IsPresent(refused));
    EXPECT_FALSE(ran);
}

// A backlog of short tasks is gone before new workers could help. On a crowded machine the processor may come to the
// workers too late for once, so the fewest threads of several bursts count.
TEST(ThreadPoolGrowth, BurstOfShortTasksHardlyGrowsThePool) {
    constexpr int kTasks = 10'000;
    constexpr int kMostThreads = 32;
    int fewest = std::numeric_limits<int>::max();
    for (int burst = 0; burst < 5 && fewest > kMostThreads; ++burst) {
        const ThreadStarts starts;
        std::atomic<int> ran = 0;
        {
            const ConcurrencyLifetime lifetime;
            for (int i = 0; i < kTasks; ++i) {
                GlobalThreadPool::Queue(MakeTask(L"short", [&] {
                    const Stopwatch work;
                    while (work.Elapsed() < 3us) {
                    }
                    ++ran;
                }));
            }
        }
        EXPECT_EQ(ran, kTasks);
        fewest = std::min(fewest, starts.Count());
    }
    EXPECT_LE(fewest, kMostThreads);
}

}  // namespace
