// The 30 s that shutdown gives to tasks, in real time.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/stopwatch.h"
#include "tests/support/thread.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_fields.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

using Pool = ThreadPool<NullPolicy>;

void SleepUntilCancelled() {
    for (;;) {
        CancellableSleep(INFINITE);
    }
}

TEST(ThreadPoolStop, CancelsRunningAndQueuedTasksAfterThirtySeconds) {
    std::atomic<int> entered = 0;
    std::atomic<bool> queuedRan = false;
    std::vector<std::shared_ptr<FutureImpl<void>>> running(2);
    std::vector<std::shared_ptr<FutureImpl<void>>> queued(3);
    const Pool pool(2);
    for (auto& future : running) {
        pool.Core()->Queue(MakeTask(
            L"runs for ever",
            [&] {
                ++entered;
                SleepUntilCancelled();
            },
            future));
    }
    ASSERT_TRUE(Eventually([&] { return entered == 2; }));
    for (auto& future : queued) {
        pool.Core()->Queue(MakeTask(L"queued", [&] { queuedRan = true; }, future));
    }

    const Stopwatch stopwatch;
    {
        const BackgroundCall stop([&] { pool.Core()->Stop(); });
        Sleep(25'000);
        for (const auto& future : running) {
            EXPECT_TRUE(future->IsBusy());
        }
        EXPECT_EQ(CountsOf(pool).queue, 3U);
        EXPECT_TRUE(stop.Ends());
    }
    EXPECT_GE(stopwatch.Elapsed(), 30s);
    for (const auto& future : running) {
        EXPECT_TRUE(future->IsCancelled());
    }
    for (const auto& future : queued) {
        EXPECT_TRUE(future->IsCancelled());
    }
    EXPECT_FALSE(queuedRan);
    EXPECT_EQ(CountsOf(pool).queue, 0U);
    EXPECT_EQ(CountsOf(pool).threads, 0U);
}

// The destructor waits for another thread's call: with a lock of the pool held, neither would come back.
TEST(ThreadPoolStop, DestroysCancelledTasksOutsideOfTheLocks) {
    Gate destroyed;
    const Pool pool(1);
    pool.Core()->Queue(MakeTask(L"runs for ever", &SleepUntilCancelled));
    ASSERT_TRUE(Eventually([&] { return CountsOf(pool).running == 1; }));
    pool.Core()->Queue(MakeTask(L"queued", [end = AtEnd([&] {
                                                Thread([&] { pool.Core()->Queue(Task()); }).join();
                                                destroyed.Open();
                                            })] {}));
    const BackgroundCall stop([&] { pool.Core()->Stop(); });
    EXPECT_TRUE(Eventually([&] { return destroyed.IsOpen(); }, 60s));
    EXPECT_TRUE(stop.Ends());
}

// A task that does not listen holds shutdown up for as long as it runs.
TEST(ThreadPoolStop, JoinsWithoutLimitOnceItHasCancelled) {
    HeldTasks held;
    std::shared_ptr<FutureImpl<void>> future;
    const Pool pool(1);
    ASSERT_TRUE(held.Start(1, QueueOf(pool)));
    pool.Core()->Queue(MakeTask(L"queued", [] {}, future));
    const BackgroundCall stop([&] { pool.Core()->Stop(); });
    EXPECT_TRUE(Eventually([&] { return future->IsCancelled(); }, 60s));
    EXPECT_EQ(CountsOf(pool).queue, 0U);
    Sleep(1'000);
    EXPECT_TRUE(stop.IsRunning());
    held.Release();
    EXPECT_TRUE(stop.Ends());
}

}  // namespace
