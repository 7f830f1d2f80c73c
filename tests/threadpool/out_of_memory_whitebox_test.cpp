// Memory runs out at any point of an operation of the pool.
#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <new>
#include <stdexcept>
#include <string_view>

#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/support/allocations.h"
#include "tests/support/eventually.h"
#include "tests/support/failing_allocation.h"
#include "tests/support/fake_ticks.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Pool = ThreadPool<NullPolicy>;

void ExpectBadAlloc(const std::exception& error) {
    EXPECT_NE(dynamic_cast<const std::bad_alloc*>(&error), nullptr) << error.what();
}

// The pool would grow, after a sleep or without one.
class QueueWithoutMemory : public testing::TestWithParam<DWORD> {};

TEST_P(QueueWithoutMemory, ChangesNothing) {
    const FakeTicks ticks(GetParam());
    const Pool pool(0);
    HeldTasks held;
    ASSERT_TRUE(held.Start(6, QueueOf(pool)));
    const PoolCounts before = CountsOf(pool);
    std::atomic<int> ran = 0;
    const Task task = MakeTask(L"task", [&] { ++ran; });
    const int failures = FailEachAllocation([&] { pool.Core()->Queue(task); },
                                            [&](const std::exception& error) {
                                                ExpectBadAlloc(error);
                                                EXPECT_EQ(CountsOf(pool), before);
                                                EXPECT_FALSE(SpawnIsInProgress(pool));
                                            });
    EXPECT_GT(failures, 1);  // the growth's own, too
    EXPECT_TRUE(Eventually([&] { return ran == 1; }));
    EXPECT_TRUE(Eventually([&] { return CountsOf(pool).threadCount == 2 * kGrowthBatch; }));
}

INSTANTIATE_TEST_SUITE_P(At, QueueWithoutMemory, testing::Values(DWORD{100'000}, DWORD{240}));

TEST(LaunchWithoutMemory, ChangesNothing) {
    const Pool pool(1);
    const PoolCounts before = CountsOf(pool);
    std::atomic<int> ran = 0;
    Task task = MakeTask(L"task", [&] { ++ran; });
    const int failures = FailEachAllocation([&] { pool.Core()->LaunchInNewThread(task); },
                                            [&](const std::exception& error) {
                                                ExpectBadAlloc(error);
                                                EXPECT_EQ(CountsOf(pool), before);
                                            });
    EXPECT_GT(failures, 0);
    task.Wait();
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(CountsOf(pool).nextDedicatedNumber, 1U);
}

TEST(SpawnWithoutMemory, IsASpawnErrorEvenIfThereIsNoneForTheError) {
    const Pool pool(1);
    bool isSpawnError = false;
    {
        const NoMemory none;
        try {
            pool.Core()->SpawnThreads(1);
        } catch (const std::runtime_error& error) {
            isSpawnError = std::string_view(error.what()) == "Failed to spawn thread, resource error";
        } catch (const std::exception&) {
            isSpawnError = false;
        }
    }
    EXPECT_TRUE(isSpawnError);
}

TEST(SpawnWithoutMemory, IsASpawnErrorAndCountsNoWorker) {
    const Pool pool(1);
    const PoolCounts before = CountsOf(pool);
    const int failures = FailEachAllocation([&] { pool.Core()->SpawnThreads(3); },
                                            [&](const std::exception& error) {
                                                EXPECT_STREQ(error.what(), "Failed to spawn thread, resource error");
                                                EXPECT_EQ(CountsOf(pool), before);
                                            });
    EXPECT_GT(failures, 0);
    EXPECT_EQ(CountsOf(pool).threadCount, 1U + 3U);
    EXPECT_EQ(CountsOf(pool).threads, 1U + 3U);
}

}  // namespace
