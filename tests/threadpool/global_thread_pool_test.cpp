#include "concurrency/threadpool/global_thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_numbers.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(GlobalThreadPool, FreshPoolHasEightWorkers) {
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    EXPECT_FALSE(GlobalThreadPool::IsPresent(Task()));
    EXPECT_EQ(starts.Count(), kFirstWorkers);
    EXPECT_FALSE(GlobalThreadPool::IsPresent(Task()));
    EXPECT_EQ(starts.Count(), kFirstWorkers);
}

TEST(GlobalThreadPool, QueueMakesThePool) {
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    Task task = MakeTask(L"task", [] {});
    GlobalThreadPool::Queue(task);
    task.Wait();
    EXPECT_EQ(starts.Count(), kFirstWorkers);
}

TEST(GlobalThreadPool, LaunchMakesThePoolAndOneThreadMore) {
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    Task task = MakeTask(L"task", [] {});
    GlobalThreadPool::LaunchInNewThread(task);
    task.Wait();
    EXPECT_EQ(starts.Count(), kFirstWorkers + 1);
}

TEST(GlobalThreadPool, SixteenConcurrentFirstUsesMakeOnePool) {
    constexpr int kCallers = 16;
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    Countdown all(kCallers);
    std::vector<Thread> callers;
    for (int i = 0; i < kCallers; ++i) {
        callers.emplace_back([&all] {
            all.Meet();
            EXPECT_FALSE(GlobalThreadPool::IsPresent(Task()));
        });
    }
    for (Thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(starts.Count(), kFirstWorkers);
}

TEST(GlobalThreadPool, TasksRunWithoutInitialisationAndTheLastUninitialisationStopsThatPool) {
    const ThreadStarts starts;
    std::shared_ptr<FutureImpl<void>> future;
    const Task early = MakeTask(L"early", [] {}, future);
    GlobalThreadPool::Queue(early);
    // Not only its outcome: a run that is still under way when the library is initialised leaves its cell behind.
    EXPECT_TRUE(Eventually([&] { return !GlobalThreadPool::IsPresent(early); }));
    EXPECT_TRUE(future->IsNormal());
    {
        const ConcurrencyLifetime lifetime;
    }
    EXPECT_FALSE(GlobalThreadPool::IsPresent(Task()));  // makes a new one
    EXPECT_EQ(starts.Count(), 2 * kFirstWorkers);
    {
        const ConcurrencyLifetime lifetime;
    }
}

TEST(GlobalThreadPool, TaskIsPresentWhileItRunsAndGoneOnceItHasReturned) {
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    const Task task = held.Make();
    EXPECT_FALSE(GlobalThreadPool::IsPresent(task));
    ASSERT_TRUE(held.Start(1, [&](const Task&) { GlobalThreadPool::Queue(task); }));
    EXPECT_TRUE(GlobalThreadPool::IsPresent(task));
    held.Release();
    EXPECT_TRUE(Eventually([&] { return !GlobalThreadPool::IsPresent(task); }));
}

TEST(GlobalThreadPool, PresenceGoesByIdentityNotByName) {
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    const Task running = held.Make(L"same name");
    const Task other = held.Make(L"same name");
    ASSERT_TRUE(held.Start(1, [&](const Task&) { GlobalThreadPool::Queue(running); }));
    EXPECT_TRUE(GlobalThreadPool::IsPresent(Task(running)));
    EXPECT_FALSE(GlobalThreadPool::IsPresent(other));
}

TEST(GlobalThreadPool, TasksRunOnWorkersNotOnTheCaller) {
    const ConcurrencyLifetime lifetime;
    std::atomic<DWORD> worker = 0;
    Task task = MakeTask(L"task", [&] { worker = GetCurrentThreadId(); });
    GlobalThreadPool::Queue(task);
    task.Wait();
    EXPECT_NE(worker, 0U);
    EXPECT_NE(worker, GetCurrentThreadId());
}

// No lock of the pool is held while a task runs.
TEST(GlobalThreadPool, RunningTaskMayUseEveryOperationOfThePool) {
    const ConcurrencyLifetime lifetime;
    std::shared_ptr<FutureImpl<void>> future;
    GlobalThreadPool::Queue(MakeTask(
        L"outer",
        [] {
            Task queued = MakeTask(L"queued", [] {});
            Task launched = MakeTask(L"launched", [] {});
            GlobalThreadPool::Queue(queued);
            GlobalThreadPool::LaunchInNewThread(launched);
            queued.Wait();
            launched.Wait();
            GlobalThreadPool::IsPresent(queued);
        },
        future));
    EXPECT_TRUE(Eventually([&] { return future->IsNormal(); }));
}

TEST(GlobalThreadPool, CancelledTaskIsTakenButNotRun) {
    const ConcurrencyLifetime lifetime;
    std::atomic<bool> ran = false;
    Task task = MakeTask(L"cancelled", [&] { ran = true; });
    task.Cancel();
    GlobalThreadPool::Queue(task);
    EXPECT_TRUE(Eventually([&] { return !GlobalThreadPool::IsPresent(task); }));
    EXPECT_FALSE(ran);
}

TEST(GlobalThreadPool, EmptyTasksAreTakenLikeCancelledOnes) {
    const ConcurrencyLifetime lifetime;
    const Task empty;
    const Task withoutWork(L"null wrapper", nullptr);
    for (const Task& task : {empty, withoutWork}) {
        GlobalThreadPool::Queue(task);
        EXPECT_TRUE(Eventually([&] { return !GlobalThreadPool::IsPresent(task); }));
        GlobalThreadPool::LaunchInNewThread(task);
    }
    Task after = MakeTask(L"after", [] {});
    GlobalThreadPool::Queue(after);
    after.Wait();
}

TEST(GlobalThreadPool, ErrorOfATaskStaysInItsFutureAndTheWorkerGoesOn) {
    const ConcurrencyLifetime lifetime;
    std::vector<std::shared_ptr<FutureImpl<void>>> futures(5 * kFirstWorkers);
    for (auto& future : futures) {
        GlobalThreadPool::Queue(MakeTask(L"fails", [] { throw Unexpected(L"failed on purpose"); }, future));
    }
    for (const auto& future : futures) {
        EXPECT_THROW(future->GetValue(), Unexpected);
    }
    Task after = MakeTask(L"after", [] {});
    GlobalThreadPool::Queue(after);
    after.Wait();
}

TEST(GlobalThreadPool, CallableThatReturnedMayQueueFromItsDestructor) {
    const ConcurrencyLifetime lifetime;
    std::shared_ptr<FutureImpl<void>> future;
    const Task next = MakeTask(L"next", [] {}, future);
    GlobalThreadPool::Queue(MakeTask(L"first", [end = AtEnd([next] { GlobalThreadPool::Queue(next); })] {}));
    EXPECT_TRUE(Eventually([&] { return future->IsNormal(); }));
}

// A callable that threw dies with the last handle of its task, which is the worker's here. The destructor waits for
// another thread's call: with a lock of the pool held, neither would come back.
TEST(GlobalThreadPool, CallableThatThrewIsDestroyedOutsideOfTheLocks) {
    const ConcurrencyLifetime lifetime;
    Gate handleIsGone;
    Gate destroyed;
    const auto useFromAnotherThread = [&destroyed] {
        Thread([] {
            Task task = MakeTask(L"from the destructor", [] {});
            GlobalThreadPool::Queue(task);
            task.Wait();
        }).join();
        destroyed.Open();
    };
    GlobalThreadPool::Queue(MakeTask(L"throws", [&handleIsGone, end = AtEnd(useFromAnotherThread)] {
        handleIsGone.Wait();
        throw Unexpected(L"kept");
    }));
    handleIsGone.Open();
    EXPECT_TRUE(Eventually([&] { return destroyed.IsOpen(); }));
}

TEST(GlobalThreadPool, LastUninitialisationRunsWhatIsQueued) {
    constexpr int kTasks = 200;
    std::atomic<int> ran = 0;
    {
        const ConcurrencyLifetime lifetime;
        for (int i = 0; i < kTasks; ++i) {
            GlobalThreadPool::Queue(MakeTask(L"task", [&] { ++ran; }));
        }
    }
    EXPECT_EQ(ran, kTasks);
}

}  // namespace
