#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>

#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_ticks.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/stopwatch.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"
#include "tests/threadpool/stop_from_inside.h"
#include "tests/threadpool/task_records.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

using Pool = ThreadPool<NullPolicy>;

TEST(ThreadPoolGrowthRule, CountOfZeroMeansEightWorkersThatMayGrow) {
    const Pool pool(0);
    const PoolCounts counts = CountsOf(pool);
    EXPECT_EQ(counts.threadCount, kGrowthBatch);
    EXPECT_EQ(counts.threads, kGrowthBatch);
    EXPECT_TRUE(counts.growable);
}

TEST(ThreadPoolGrowthRule, AnyOtherCountIsFixed) {
    for (const std::uint64_t count : {1U, 3U, 20U}) {
        const Pool pool(count);
        const PoolCounts counts = CountsOf(pool);
        EXPECT_EQ(counts.threadCount, count);
        EXPECT_EQ(counts.threads, count);
        EXPECT_FALSE(counts.growable);
    }
}

TEST(ThreadPoolGrowthRule, FixedPoolDoesNotGrow) {
    const RecordedReports reports;
    const Pool pool(2);
    HeldTasks held;
    ASSERT_TRUE(held.Start(2, QueueOf(pool)));
    for (int i = 0; i < 20; ++i) {
        pool.Core()->Queue(held.Make());
    }
    EXPECT_EQ(CountsOf(pool).queue, 20U);
    EXPECT_FALSE(SpawnIsInProgress(pool));
    held.Release();
    EXPECT_TRUE(Eventually([&] { return CountTasks(reports, kStopped, L"held") == 22; }));
    EXPECT_EQ(CountTasks(reports, kStarted, kGrowthTask), 0);
    EXPECT_EQ(CountsOf(pool).threadCount, 2U);
}

TEST(ThreadPoolGrowthRule, GrowthCountsAndKeepsEightMore) {
    const Pool pool(0);
    HeldTasks held;
    ASSERT_TRUE(held.Start(7, QueueOf(pool)));
    ASSERT_TRUE(Eventually([&] { return CountsOf(pool).threadCount == 2 * kGrowthBatch; }));
    EXPECT_EQ(CountsOf(pool).threads, 2 * kGrowthBatch);
    EXPECT_FALSE(SpawnIsInProgress(pool));
}

// Eight workers that have not begun yet, as far as the pool is concerned, so that nothing leaves the queue.
class HeldWorkers : public testing::Test {
  protected:
    HeldWorkers() {
        s_mayBegin = std::make_shared<Gate>();
        s_ended = 0;
        m_core->SpawnThreads(kGrowthBatch);
    }
    ~HeldWorkers() override {
        s_mayBegin->Open();
        m_core->Stop();
    }

    static Task Nothing() {
        return MakeTask(L"nothing", [] {});
    }

    // As if so many tasks had been queued already.
    void Preload(int tasks) {
        for (int i = 0; i < tasks; ++i) {
            AppendToQueue(*m_core, Nothing());
        }
    }

    const std::shared_ptr<ThreadPoolCore> m_core = std::make_shared<ThreadPoolCore>(true, &Begin);

    static inline std::shared_ptr<Gate> s_mayBegin;
    static inline std::atomic<std::uint64_t> s_ended = 0;

  private:
    static void Begin(ThreadPoolCore& core, WorkerBatch& batch, TaskNote& note) {
        const auto mayBegin = s_mayBegin;
        mayBegin->Wait();
        core.RunWorker(batch, note);
        ++s_ended;
    }
};

TEST_F(HeldWorkers, FiveBusyDoNotGrowThePool) {
    Preload(5);
    m_core->Queue(Nothing());
    EXPECT_FALSE(SpawnIsInProgress(*m_core));
    EXPECT_EQ(CountsOf(*m_core).queue, 6U);
}

TEST_F(HeldWorkers, SixBusyGrowThePoolAndTheGrowthGoesToTheFront) {
    const RecordedReports reports;
    Preload(6);
    m_core->Queue(MakeTask(L"last", [] {}));
    EXPECT_TRUE(SpawnIsInProgress(*m_core));
    EXPECT_EQ(QueuedNames(*m_core).front(), kGrowthTask);
    EXPECT_EQ(QueuedNames(*m_core).back(), L"last");
    EXPECT_EQ(CountsOf(*m_core).queue, 8U);
}

TEST_F(HeldWorkers, AsManyBusyAsThereAreWorkersGrowThePool) {
    Preload(8);
    m_core->Queue(Nothing());
    EXPECT_TRUE(SpawnIsInProgress(*m_core));
    EXPECT_EQ(CountsOf(*m_core).queue, 10U);
}

// The difference is unsigned: it wraps to a huge one.
TEST_F(HeldWorkers, MoreBusyThanThereAreWorkersDoNotGrowThePool) {
    Preload(9);
    m_core->Queue(Nothing());
    EXPECT_FALSE(SpawnIsInProgress(*m_core));
    EXPECT_EQ(CountsOf(*m_core).queue, 10U);
}

TEST_F(HeldWorkers, RunningTasksCountAsBusyLikeQueuedOnes) {
    s_mayBegin->Open();
    HeldTasks held;
    ASSERT_TRUE(held.Start(6, [this](const Task& task) { m_core->Queue(task); }));
    EXPECT_EQ(CountsOf(*m_core).queue, 0U);
    EXPECT_EQ(CountsOf(*m_core).running, 6U);
    m_core->Queue(held.Make());
    EXPECT_TRUE(Eventually([&] { return CountsOf(*m_core).threadCount == 2 * kGrowthBatch; }));
}

// The growth is held where it would sleep for the rest of its period.
TEST_F(HeldWorkers, OtherCallersWaitForAGrowthThatSleepsEvenIfThereIsRoomAgain) {
    Gate sleeps;
    Gate mayGoOn;
    FakeTicks ticks(100'000);
    ticks.OnRead([&](int number) {
        if (number == 1) {
            sleeps.Open();
            mayGoOn.Wait();
        }
    });
    Preload(6);
    const BackgroundCall grower([&] { m_core->Queue(Nothing()); });
    sleeps.Wait();
    s_mayBegin->Open();
    EXPECT_TRUE(Eventually([&] { return CountsOf(*m_core).queue == 0; }));
    const BackgroundCall other([&] { m_core->Queue(Nothing()); });
    Sleep(50);
    EXPECT_TRUE(other.IsRunning());
    EXPECT_TRUE(grower.IsRunning());
    mayGoOn.Open();
    EXPECT_TRUE(grower.Ends());
    EXPECT_TRUE(other.Ends());
}

// What shutdown promises to callers who wait for a growth that nobody runs.
TEST_F(HeldWorkers, StopWakesCallersWhoWaitForAGrowth) {
    Preload(6);
    m_core->Queue(Nothing());
    ASSERT_TRUE(SpawnIsInProgress(*m_core));
    const BackgroundCall caller([&] { m_core->Queue(Nothing()); });
    const BackgroundCall another([&] { m_core->Queue(Nothing()); });
    Sleep(50);
    ASSERT_TRUE(caller.IsRunning());
    ASSERT_TRUE(another.IsRunning());
    const BackgroundCall stop([&] { m_core->Stop(); });
    EXPECT_TRUE(caller.Ends());
    EXPECT_TRUE(another.Ends());
    EXPECT_TRUE(stop.IsRunning());
    EXPECT_EQ(CountsOf(*m_core).queue, 10U);
    s_mayBegin->Open();
    EXPECT_TRUE(stop.Ends());
    EXPECT_EQ(CountsOf(*m_core).queue, 0U);
}

// New workers that find the pool stopping leave before their batch is counted. Both have to be made up for, or shutdown
// would sit out its grace of 30 s.
TEST_F(HeldWorkers, StopDuringAGrowthDoesNotMissTheEndOfTheNewWorkers) {
    ThreadStarts starts;
    starts.Before([&](int number) {
        if (number == static_cast<int>(kGrowthBatch)) {
            EXPECT_TRUE(Eventually([&] { return s_ended == kGrowthBatch - 1 + kGrowthBatch - 1; }));
        }
    });
    Preload(6);
    m_core->Queue(Nothing());
    ASSERT_TRUE(SpawnIsInProgress(*m_core));
    const Stopwatch stopwatch;
    {
        const BackgroundCall stop([&] { m_core->Stop(); });
        ASSERT_TRUE(Eventually([&] { return IsStopping(*m_core); }));
        s_mayBegin->Open();
    }
    EXPECT_LT(stopwatch.Elapsed(), 25s);
    EXPECT_EQ(CountsOf(*m_core).threadCount, 0U);
    EXPECT_EQ(starts.Count(), static_cast<int>(kGrowthBatch));
}

// Like any worker, although its batch is not on record yet.
TEST_F(HeldWorkers, NewWorkerMayNotStopThePool) {
    StopFromInside stop(m_core);
    Task stopping = stop.MakeTask();
    ThreadStarts starts;
    starts.After([&](int number) {
        if (number == 1) {
            stop.GiveItAChance();
        }
    });
    {
        HeldTasks held;
        for (int i = 0; i < 6; ++i) {
            AppendToQueue(*m_core, held.Make());
        }
        m_core->Queue(held.Make());  // behind the growth: there is one for each of the first workers
        AppendToQueue(*m_core, stopping);
        s_mayBegin->Open();
        stopping.Wait();
    }
    EXPECT_EQ(stop.Refusal(), kStopRefused);
    EXPECT_FALSE(IsStopping(*m_core));
}

// Nor is the end of workers that were never counted taken for the end of others.
TEST_F(HeldWorkers, WorkersOfAFailedBatchLeaveWithoutBeingCountedOut) {
    constexpr std::uint64_t kUncounted = 4;
    s_mayBegin->Open();
    HeldTasks held;
    ASSERT_TRUE(held.Start(1, [this](const Task& task) { m_core->Queue(task); }));
    ThreadStarts starts;
    starts.FailAt(kUncounted + 1);
    EXPECT_THROW(m_core->SpawnThreads(kGrowthBatch), std::runtime_error);

    const BackgroundCall stop([&] { m_core->Stop(); });
    ASSERT_TRUE(Eventually([] { return s_ended == kGrowthBatch - 1 + kUncounted; }));
    EXPECT_EQ(CountsOf(*m_core).threadCount, 1U);
    held.Release();
    EXPECT_TRUE(stop.Ends());
    EXPECT_EQ(CountsOf(*m_core).threadCount, 0U);
}

TEST_F(HeldWorkers, StoppingPoolRefusesTheGrowthButTakesTheTask) {
    Preload(6);
    const BackgroundCall stop([&] { m_core->Stop(); });
    ASSERT_TRUE(Eventually([&] { return IsStopping(*m_core); }));
    m_core->Queue(MakeTask(L"late", [] {}));
    EXPECT_EQ(CountsOf(*m_core).queue, 7U);
    EXPECT_EQ(QueuedNames(*m_core).front(), L"nothing");
    EXPECT_EQ(QueuedNames(*m_core).back(), L"late");
    s_mayBegin->Open();
    EXPECT_TRUE(stop.Ends());
}

// The growth was decided before, and not queued yet.
TEST_F(HeldWorkers, PoolThatStopsDuringTheGrowthSleepRefusesTheGrowthButTakesTheTask) {
    FakeTicks ticks(100'000);
    ticks.OnRead([&](int) { m_core->Abandon(); });
    Preload(6);
    m_core->Queue(MakeTask(L"late", [] {}));
    EXPECT_EQ(CountsOf(*m_core).queue, 7U);
    EXPECT_EQ(QueuedNames(*m_core).front(), L"nothing");
    EXPECT_EQ(QueuedNames(*m_core).back(), L"late");
}

}  // namespace
