// What GetFigures() says of the pool.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>

#include "concurrency/base/windows_api.h"
#include "concurrency/figures/figures.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/held_worker.h"
#include "tests/threadpool/pool_numbers.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;
using Orvane::Internal::GlobalThreadPool;

// The library's coarse clock in the hands of a test.
class FakeCoarseTicks {
  public:
    FakeCoarseTicks() : m_patch(LibraryUnderTest(), "GetTickCount64", &Read) { s_now = 1'000'000; }

    void Advance(ULONGLONG milliseconds) { s_now += milliseconds; }

  private:
    static ULONGLONG WINAPI Read() { return s_now; }

    static inline std::atomic<ULONGLONG> s_now = 0;
    const ImportPatch m_patch;
};

TEST(FiguresOfThePool, MakeNone) {
    const ConcurrencyLifetime lifetime;
    const ThreadStarts starts;
    EXPECT_EQ(GetFigures().pool.workers, 0U);
    EXPECT_EQ(starts.Count(), 0);
}

TEST(FiguresOfThePool, HaveTheWorkersAndThoseThatRunNothing) {
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(3, &GlobalThreadPool::Queue));
    const PoolFigures pool = GetFigures().pool;
    EXPECT_EQ(pool.workers, std::uint64_t{kFirstWorkers});
    EXPECT_EQ(pool.idle, std::uint64_t{kFirstWorkers - 3});
    EXPECT_EQ(pool.queued, 0U);
    EXPECT_EQ(pool.oldestQueued, 0ms);
    EXPECT_EQ(pool.growths, 0U);
    EXPECT_EQ(pool.failedGrowths, 0U);
}

// Six workers are busy, one is held, and the one that is to add others waits for the test.
TEST(FiguresOfThePool, HaveWhatIsQueuedAndTheAgeOfTheOldest) {
    FakeCoarseTicks ticks;
    Gate mayGrow;
    ThreadStarts starts;
    starts.Before([&](int number) {
        if (number == kFirstWorkers + 1) {
            mayGrow.Wait();
        }
    });
    const ConcurrencyLifetime lifetime;
    HeldWorker worker(&GlobalThreadPool::Queue);
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull, &GlobalThreadPool::Queue));
    GlobalThreadPool::Queue(MakeTask(L"seventh", [] {}));
    EXPECT_TRUE(Eventually([] { return GetFigures().pool.queued == 1; }));
    EXPECT_EQ(GetFigures().pool.oldestQueued, 0ms);
    ticks.Advance(1'234);
    EXPECT_EQ(GetFigures().pool.oldestQueued, 1'234ms);
    EXPECT_EQ(GetFigures().pool.growths, 0U);

    mayGrow.Open();
    EXPECT_TRUE(Eventually([] { return GetFigures().pool.workers == kFirstWorkers + kBatch; }));
    EXPECT_TRUE(Eventually([] { return GetFigures().pool.queued == 0; }));
    EXPECT_TRUE(Eventually([] { return GetFigures().pool.growths == 1; }));
    EXPECT_EQ(GetFigures().pool.oldestQueued, 0ms);
    EXPECT_EQ(GetFigures().pool.failedGrowths, 0U);
}

TEST(FiguresOfThePool, HaveTheGrowthThatFailed) {
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull, &GlobalThreadPool::Queue));
    starts.FailAt(kFirstWorkers + 1);
    ASSERT_TRUE(held.Start(1, &GlobalThreadPool::Queue));
    EXPECT_TRUE(Eventually([] { return GetFigures().pool.failedGrowths == 1; }));
    EXPECT_EQ(GetFigures().pool.growths, 0U);
}

}  // namespace
