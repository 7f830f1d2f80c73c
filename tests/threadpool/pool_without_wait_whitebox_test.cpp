// The ways into a pool for callers that must not wait for ever.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <system_error>

#include "concurrency/base/windows_api.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_pool_queue.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "concurrency/threadpool/thread_pool.h"
#include "concurrency/threadpool/thread_pool_teardown.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Pool = ThreadPool<NullPolicy>;

auto TryingQueueOf(const Pool& pool) {
    return [core = pool.Core()](const Task& task) { EXPECT_TRUE(core->TryQueue(task)); };
}

auto FailingQueueOf(const Pool& pool) {
    return [core = pool.Core()](const Task& task) { core->QueueOrFail(task); };
}

TEST(TryQueue, QueuesWhileThereIsRoom) {
    const Pool pool(0);
    HeldTasks held;
    EXPECT_TRUE(held.Start(6, TryingQueueOf(pool)));
}

TEST(TryQueue, ReturnsFalseAndDoesNothingIfThePoolWouldHaveToGrow) {
    const Pool pool(0);
    HeldTasks held;
    ASSERT_TRUE(held.Start(6, TryingQueueOf(pool)));
    const Task refused = held.Make();
    EXPECT_FALSE(pool.Core()->TryQueue(refused));
    EXPECT_FALSE(pool.Core()->IsPresent(refused));
    EXPECT_FALSE(SpawnIsInProgress(pool));
    EXPECT_EQ(CountsOf(pool).threadCount, kGrowthBatch);
}

TEST(TryQueue, AlwaysQueuesWhereThePoolCannotGrow) {
    const Pool pool(1);
    HeldTasks held;
    ASSERT_TRUE(held.Start(1, TryingQueueOf(pool)));
    std::shared_ptr<FutureImpl<void>> future;
    EXPECT_TRUE(pool.Core()->TryQueue(MakeTask(L"behind", [] {}, future)));
    held.Release();
    EXPECT_TRUE(Eventually([&] { return future->IsNormal(); }));
}

TEST(QueueOrFail, GrowsThePoolLikeQueue) {
    const Pool pool(0);
    HeldTasks held;
    ASSERT_TRUE(held.Start(12, FailingQueueOf(pool)));
    EXPECT_EQ(CountsOf(pool).threadCount, 2 * kGrowthBatch);
}

// Here a caller of Queue() waits for ever.
TEST(QueueOrFail, ThrowsAndDoesNothingIfThePoolIsFullAndItsGrowthHasFailed) {
    ThreadStarts starts;
    const Pool pool(0);
    HeldTasks held;
    starts.FailAt(static_cast<int>(kGrowthBatch) + 1);
    ASSERT_TRUE(held.Start(7, FailingQueueOf(pool)));
    ASSERT_TRUE(Eventually([&] { return CountsOf(pool).running == 7; }));  // the growth has ended
    const Task refused = held.Make();
    try {
        pool.Core()->QueueOrFail(refused);
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::system_error& error) {
        EXPECT_TRUE(error.code() == std::errc::resource_unavailable_try_again) << error.what();
    }
    EXPECT_FALSE(pool.Core()->IsPresent(refused));

    held.Release();
    ASSERT_TRUE(Eventually([&] { return CountsOf(pool).running == 0; }));
    std::shared_ptr<FutureImpl<void>> future;
    pool.Core()->QueueOrFail(MakeTask(L"finds room", [] {}, future));
    EXPECT_TRUE(Eventually([&] { return future->IsNormal(); }));
}

TEST(QueueOrFail, WaitsForAGrowthThatIsUnderWay) {
    ThreadStarts starts;
    Gate isGrowing;
    Gate mayGrow;
    starts.Before([&](int number) {
        if (number == static_cast<int>(kGrowthBatch) + 1) {
            isGrowing.Open();
            mayGrow.Wait();
        }
    });
    const Pool pool(0);
    HeldTasks held;
    ASSERT_TRUE(held.Start(7, QueueOf(pool)));
    isGrowing.Wait();
    const BackgroundCall caller([&] { pool.Core()->QueueOrFail(held.Make()); });
    Sleep(50);
    EXPECT_TRUE(caller.IsRunning());
    mayGrow.Open();
    EXPECT_TRUE(caller.Ends());
}

// As every task that comes after a shutdown has cancelled what was there.
TEST(CancelledPool, CancelsWhatComesEachWay) {
    const Pool pool(1);
    ThreadPoolCorePeer::Queue(*pool.Core()).CancelAll();
    Task queued = MakeTask(L"queued", [] {});
    Task tried = MakeTask(L"tried", [] {});
    Task orFailed = MakeTask(L"or failed", [] {});
    pool.Core()->Queue(queued);
    EXPECT_TRUE(pool.Core()->TryQueue(tried));
    pool.Core()->QueueOrFail(orFailed);
    EXPECT_TRUE(queued.IsCancelled());
    EXPECT_TRUE(tried.IsCancelled());
    EXPECT_TRUE(orFailed.IsCancelled());
}

// How many batches came because a pool was full, and how many failed.
TEST(GrowthFigures, CountBatchesButNoPoolsFirst) {
    const auto growths = PoolGrowth::Growths();
    const auto failures = PoolGrowth::FailedGrowths();
    ThreadStarts starts;
    starts.FailAt(1);
    EXPECT_THROW(Pool(0), std::runtime_error);
    const Pool pool(0);
    EXPECT_EQ(PoolGrowth::Growths(), growths);
    HeldTasks held;
    ASSERT_TRUE(held.Start(7, QueueOf(pool)));
    EXPECT_TRUE(Eventually([&] { return PoolGrowth::Growths() == growths + 1; }));
    EXPECT_EQ(PoolGrowth::FailedGrowths(), failures);
    ASSERT_TRUE(Eventually([&] { return CountsOf(pool).running == 7; }));  // the growth has ended

    starts.FailAt(1 + 2 * static_cast<int>(kGrowthBatch) + 1);
    ASSERT_TRUE(held.Start(8, QueueOf(pool)));
    EXPECT_TRUE(Eventually([&] { return PoolGrowth::FailedGrowths() == failures + 1; }));
    EXPECT_EQ(PoolGrowth::Growths(), growths + 1);
}

TEST(GlobalPoolQueue, MakesNoPoolOnceTheLastUninitialisationHasDestroyedIt) {
    AllowThreadPool();
    QueueOrFail(MakeTask(L"first", [] {}));
    DestroyThreadPool();
    const Task task = MakeTask(L"late", [] {});
    EXPECT_THROW(QueueOrFail(task), Unexpected);
    EXPECT_THROW(static_cast<void>(TryQueue(task)), Unexpected);
    EXPECT_THROW(LaunchForJob(task), Unexpected);
    EXPECT_FALSE(ReadPool());

    AllowThreadPool();
    EXPECT_TRUE(TryQueue(task));
    ASSERT_TRUE(ReadPool());
    EXPECT_EQ(ReadPool()->workers, kGrowthBatch);
    Task(task).Wait();
    DestroyThreadPool();
    AllowThreadPool();
    Task launched = MakeTask(L"launched", [] {});
    LaunchForJob(launched);
    launched.Wait();
    Task queued = MakeTask(L"queued", [] {});
    QueueOrFail(queued);
    queued.Wait();
    DestroyThreadPool();
    AllowThreadPool();
}

// A caller of GlobalThreadPool makes one, and then there is one for all.
TEST(GlobalPoolQueue, TakesThePoolThatAnotherCallerHasMadeAfterTheEnd) {
    DestroyThreadPool();
    GlobalThreadPool::Queue(MakeTask(L"late", [] {}));
    Task task = MakeTask(L"later", [] {});
    QueueOrFail(task);
    task.Wait();
    DestroyThreadPool();
    AllowThreadPool();
}

}  // namespace
