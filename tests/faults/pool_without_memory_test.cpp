// Memory runs out at any point of what the users of the pool ask of it, and of the library's lifetime.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <new>
#include <stdexcept>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/faults/every_allocation.h"
#include "tests/scheduler/moments.h"
#include "tests/support/fake_ticks.h"
#include "tests/threadpool/held_tasks.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

constexpr int kFirstFull = 6;

void RunOneTask() {
    Task task = MakeTask(L"task", [] {});
    GlobalThreadPool::Queue(task);
    task.Wait();
}

// Lack of memory while workers are being started is an error of the pool.
void ExpectStatedErrors(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "Failed to spawn thread, resource error");
        throw;
    }
}

// `hand` gets the task to run, or throws and has done nothing.
void ExpectThatItRunsOnce(Attempt& attempt, void (*hand)(const Task&)) {
    std::atomic<int> runs = 0;
    Task task = MakeTask(L"handed", [&runs] { ++runs; });
    if (!attempt.Succeeds<std::exception>([&] { ExpectStatedErrors([&] { hand(task); }); })) {
        EXPECT_FALSE(GlobalThreadPool::IsPresent(task));
        EXPECT_FALSE(task.IsCancelled());
        EXPECT_EQ(runs, 0);
        hand(task);
    }
    task.Wait();
    EXPECT_EQ(runs, 1);
}

TEST(PoolWithoutMemory, IsMadeByTheNextCall) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        const ConcurrencyLifetime lifetime;
        ExpectThatItRunsOnce(attempt, &GlobalThreadPool::Queue);
    });
    EXPECT_GT(failures, 0);
}

TEST(PoolWithoutMemory, TakesTheTaskFromTheNextCall) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        const ConcurrencyLifetime lifetime;
        RunOneTask();
        ExpectThatItRunsOnce(attempt, &GlobalThreadPool::Queue);
    });
    EXPECT_GT(failures, 0);
}

TEST(PoolWithoutMemory, GrowsWithTheNextCall) {
    const FakeTicks ticks(100'000);
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        const ConcurrencyLifetime lifetime;
        HeldTasks held;
        ASSERT_TRUE(held.Start(kFirstFull, &GlobalThreadPool::Queue));
        ExpectThatItRunsOnce(attempt, &GlobalThreadPool::Queue);
        ASSERT_TRUE(held.Start(kFirstFull, &GlobalThreadPool::Queue));  // more than the first workers can run
    });
    EXPECT_GT(failures, 0);
}

TEST(PoolWithoutMemory, LaunchesTheTaskWithTheNextCall) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        const ConcurrencyLifetime lifetime;
        RunOneTask();
        ExpectThatItRunsOnce(attempt, &GlobalThreadPool::LaunchInNewThread);
    });
    EXPECT_GT(failures, 0);
}

TEST(PoolWithoutMemory, TellsWhatIsPresent) {
    const ConcurrencyLifetime lifetime;
    RunOneTask();
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        const Task task = MakeTask(L"absent", [] {});
        EXPECT_TRUE(attempt.Succeeds([&] { EXPECT_FALSE(GlobalThreadPool::IsPresent(task)); }));
    });
    EXPECT_EQ(failures, 0);
}

TEST(LifetimeWithoutMemory, BeginsAllTheSame) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        EXPECT_TRUE(attempt.Succeeds([] { ConcurrencyInitialize(); }));
        EXPECT_TRUE(IsConcurrencyInitialized());
        RunOneTask();
        ConcurrencyUninitialize();
    });
    EXPECT_EQ(failures, 0);
}

TEST(LifetimeWithoutMemory, EndsAllTheSame) {
    ForEveryAllocation([](Attempt& attempt) {
        ConcurrencyInitialize();
        RunOneTask();
        Task launched = MakeTask(L"launched", [] {});
        GlobalThreadPool::LaunchInNewThread(launched);
        launched.Wait();
        GlobalScheduler::Insert(ScheduledTask(MakeTask(L"later", [] {}), Now() + std::chrono::hours(1), kOnce));
        EXPECT_TRUE(attempt.Succeeds([] { ConcurrencyUninitialize(); }));
        EXPECT_FALSE(IsConcurrencyInitialized());
    });
}

}  // namespace
