// Shutdown of the global pool beyond its 30 s, in real time.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/gate.h"
#include "tests/support/stopwatch.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/killed_worker.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// Queues a task that sleeps until it is cancelled, and returns its future when it runs.
std::shared_ptr<FutureImpl<void>> QueueSleeper() {
    const auto entered = std::make_shared<Gate>();
    std::shared_ptr<FutureImpl<void>> future;
    GlobalThreadPool::Queue(MakeTask(
        L"sleeps",
        [entered] {
            entered->Open();
            for (;;) {
                CancellableSleep(INFINITE);
            }
        },
        future));
    entered->Wait();
    return future;
}

TEST(GlobalThreadPoolStop, CancelsAfterThirtySeconds) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    const auto future = QueueSleeper();
    const Stopwatch stopwatch;
    lifetime.reset();
    EXPECT_GE(stopwatch.Elapsed(), 30s);
    EXPECT_TRUE(future->IsCancelled());
}

TEST(GlobalThreadPoolStop, WaitsThirtySecondsForAKilledWorkerNobodyReportedAndThenCancelsAllTasks) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    KillOneWorker();
    const auto future = QueueSleeper();
    const Stopwatch stopwatch;
    lifetime.reset();
    EXPECT_GE(stopwatch.Elapsed(), 30s);
    EXPECT_TRUE(future->IsCancelled());
}

TEST(GlobalThreadPoolStop, WaitsThirtySecondsForAKilledWorkerEvenIfAllOthersHaveLeft) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    KillOneWorker();
    const Stopwatch stopwatch;
    lifetime.reset();
    EXPECT_GE(stopwatch.Elapsed(), 30s);
}

TEST(GlobalThreadPoolStop, WaitsForADedicatedTaskBeyondThirtySecondsWithoutCancellingIt) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    Gate entered;
    Gate mayEnd;
    std::atomic<bool> cancelled = false;
    std::shared_ptr<FutureImpl<void>> future;
    GlobalThreadPool::LaunchInNewThread(MakeTask(
        L"dedicated",
        [&] {
            entered.Open();
            mayEnd.Wait();
            cancelled = IsCancellationRequested();
        },
        future));
    entered.Wait();
    const BackgroundCall stop([&] { lifetime.reset(); });
    Sleep(32'000);
    EXPECT_TRUE(stop.IsRunning());
    mayEnd.Open();
    EXPECT_TRUE(stop.Ends());
    EXPECT_TRUE(future->IsNormal());
    EXPECT_FALSE(cancelled);
}

}  // namespace
