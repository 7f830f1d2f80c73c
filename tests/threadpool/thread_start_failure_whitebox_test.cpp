#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>

#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "concurrency/threadpool/thread_pool.h"
#include "concurrency/threadpool/thread_pool_teardown.h"
#include "tests/support/eventually.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

constexpr const char* kSpawnError = "Failed to spawn thread, resource error";

using Pool = ThreadPool<NullPolicy>;

template <typename Call>
void ExpectSpawnError(Call call) {
    try {
        call();
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), kSpawnError);
    }
}

TEST(ThreadStartFailure, ConstructorThrows) {
    ThreadStarts starts;
    starts.FailAt(3);
    ExpectSpawnError([] { const Pool pool(3); });
    EXPECT_EQ(starts.Count(), 3);
}

TEST(ThreadStartFailure, FailedBatchIsNeitherKeptNorCounted) {
    ThreadStarts starts;
    const Pool pool(2);
    const PoolCounts before = CountsOf(pool);
    starts.FailAt(2 + 5);
    ExpectSpawnError([&] { pool.Core()->SpawnThreads(8); });
    EXPECT_EQ(CountsOf(pool), before);
    EXPECT_EQ(starts.Count(), 2 + 5);
}

TEST(ThreadStartFailure, ErrorOfTheGrowthTaskEndsUpInItsFuture) {
    ThreadStarts starts;
    const Pool pool(1);
    starts.FailAt(2);
    std::shared_ptr<FutureImpl<void>> future;
    pool.Core()->Queue(
        MakeTask(L"grows", std::bind(&ThreadPoolCore::SpawnThreads, pool.Core().get(), kGrowthBatch), future));
    ASSERT_TRUE(Eventually([&] { return future->IsReady(); }));
    ExpectSpawnError([&] { future->GetValue(); });
}

TEST(ThreadStartFailure, FailedGrowthStaysInProgress) {
    ThreadStarts starts;
    const Pool pool(0);
    HeldTasks held;
    starts.FailAt(8 + 1);
    ASSERT_TRUE(held.Start(7, QueueOf(pool)));
    EXPECT_TRUE(Eventually([&] { return CountsOf(pool).running == 7; }));
    EXPECT_TRUE(SpawnIsInProgress(pool));
    EXPECT_EQ(CountsOf(pool).threadCount, kGrowthBatch);
    EXPECT_EQ(CountsOf(pool).threads, kGrowthBatch);
}

// What the last uninitialisation does first.
class GivenUpGrowth : public testing::Test {
  protected:
    ~GivenUpGrowth() override { PoolGrowth::SetFailureIsFinal(false); }

    static void GiveUp(const Pool& pool) {
        PoolGrowth::SetFailureIsFinal(true);
        pool.Core()->WakeCallers();
    }
};

// A pool that can grow still does.
TEST_F(GivenUpGrowth, IsThatWhichHasFailed) {
    const Pool pool(0);
    GiveUp(pool);
    HeldTasks held;
    ASSERT_TRUE(held.Start(12, QueueOf(pool)));
    EXPECT_GE(CountsOf(pool).threadCount, 2 * kGrowthBatch);
}

TEST_F(GivenUpGrowth, KeepsNobodyWaitingIfItHadFailedBefore) {
    ThreadStarts starts;
    const Pool pool(0);
    HeldTasks held;
    starts.FailAt(8 + 1);
    ASSERT_TRUE(held.Start(7, QueueOf(pool)));
    const BackgroundCall caller([&] { pool.Core()->Queue(held.Make()); });
    ASSERT_TRUE(SpawnIsInProgress(pool));
    GiveUp(pool);
    EXPECT_TRUE(caller.Ends());
    EXPECT_FALSE(SpawnIsInProgress(pool));
}

TEST_F(GivenUpGrowth, KeepsNobodyWaitingIfItFailsAfterwards) {
    ThreadStarts starts;
    const Pool pool(0);
    GiveUp(pool);
    HeldTasks held;
    starts.FailAt(8 + 1);
    ASSERT_TRUE(held.Start(7, QueueOf(pool)));
    const BackgroundCall caller([&] { pool.Core()->Queue(held.Make()); });
    EXPECT_TRUE(caller.Ends());
    EXPECT_EQ(starts.Count(), 8 + 1);
}

// As when a task of the scheduler is the first that comes to the pool, while the scheduler ends.
TEST_F(GivenUpGrowth, IsRememberedForAPoolThatIsCreatedLater) {
    ThreadStarts starts;
    GiveUpFailedGrowth();
    {
        HeldTasks held;
        starts.FailAt(8 + 1);
        ASSERT_TRUE(held.Start(7, &GlobalThreadPool::Queue));
        const BackgroundCall caller([&] { GlobalThreadPool::Queue(held.Make()); });
        EXPECT_TRUE(caller.Ends());
    }
    DestroyThreadPool();
}

// The callers of a pool that is created afterwards wait again.
TEST_F(GivenUpGrowth, IsForgottenWithTheProcessPool) {
    GiveUpFailedGrowth();
    DestroyThreadPool();
    AllowThreadPool();
    ThreadStarts starts;
    const Pool pool(0);
    HeldTasks held;
    starts.FailAt(8 + 1);
    ASSERT_TRUE(held.Start(7, QueueOf(pool)));
    ASSERT_TRUE(Eventually([&] { return starts.Count() == 8 + 1; }));
    const BackgroundCall caller([&] { pool.Core()->Queue(held.Make()); });
    Sleep(50);
    EXPECT_TRUE(caller.IsRunning());
    GiveUp(pool);
    EXPECT_TRUE(caller.Ends());
}

TEST(ThreadStartFailure, FailedLaunchLeavesEveryRecordAsItWas) {
    ThreadStarts starts;
    const Pool pool(1);
    pool.Core()->LaunchInNewThread(MakeTask(L"task", [] {}));
    ASSERT_TRUE(Eventually([&] { return CountsOf(pool).exitedPromises == 1; }));
    pool.Core()->LaunchInNewThread(Task());  // reaps the first
    ASSERT_TRUE(Eventually([&] { return CountsOf(pool).exitedPromises == 1; }));
    starts.FailAt(starts.Count() + 1);
    EXPECT_THROW(pool.Core()->LaunchInNewThread(MakeTask(L"task", [] {})), std::system_error);

    // It reaped before it failed.
    const PoolCounts after = CountsOf(pool);
    EXPECT_EQ(after.nextDedicatedNumber, 2U);
    EXPECT_EQ(after.threads, 1U);
    EXPECT_EQ(after.finishedThreads, 0U);
    EXPECT_EQ(after.dedicatedThreads, 0U);
    EXPECT_EQ(after.completionFutures, 0U);
    EXPECT_EQ(after.exitedPromises, 0U);
}

}  // namespace
