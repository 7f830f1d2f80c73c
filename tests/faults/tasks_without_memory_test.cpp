// Memory runs out at any point of what a task goes through on the threads of its users.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <new>
#include <optional>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "tests/faults/every_allocation.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Future = std::shared_ptr<FutureImpl<void>>;

Task Counting(int& runs) {
    return MakeTask(L"counting", [&runs] { ++runs; });
}

TEST(TaskWithoutMemory, IsNotBuiltAndLeavesItsFutureAlone) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        int runs = 0;
        Future future;
        std::optional<Task> task;
        const auto build = [&] { task = MakeTask(L"built", [&runs] { ++runs; }, future); };
        if (!attempt.Succeeds(build)) {
            EXPECT_EQ(future, nullptr);
            build();
        }
        (*task)();
        EXPECT_EQ(runs, 1);
        EXPECT_TRUE(future->IsNormal());
    });
    EXPECT_GT(failures, 0);
}

TEST(TaskWithoutMemory, IsCopiedAllTheSame) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        int runs = 0;
        const Task task = Counting(runs);
        Task copy;
        EXPECT_TRUE(attempt.Succeeds([&] { copy = task; }));
        EXPECT_EQ(copy, task);
    });
    EXPECT_EQ(failures, 0);
}

TEST(TaskWithoutMemory, IsNotReset) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        int runs = 0;
        Task task = Counting(runs);
        const auto before = task.GetWrapper();
        if (!attempt.Succeeds([&] { task.Reset(); })) {
            EXPECT_EQ(task.GetWrapper(), before);
            EXPECT_FALSE(task.IsCancelled());
            task.Reset();
        }
        EXPECT_NE(task.GetWrapper(), before);
        task();
        EXPECT_EQ(runs, 1);
    });
    EXPECT_GT(failures, 0);
}

// A run that could not begin begins when it is called again. One whose thread has no room for the current task has
// begun: it stays busy until it is called again, and whoever waits for it meanwhile waits.
TEST(TaskWithoutMemory, RunsWhenItsUserCallsItAgain) {
    const ConcurrencyLifetime lifetime;
    int stayedBusy = 0;
    const int failures = ForEveryAllocation([&](Attempt& attempt) {
        int runs = 0;
        Future future;
        Task task = MakeTask(L"run", [&runs] { ++runs; }, future);
        if (!attempt.Succeeds([&] { task(); })) {
            EXPECT_EQ(runs, 0);
            EXPECT_EQ(GetFutureObject(), nullptr);
            EXPECT_FALSE(future->IsReady());
            stayedBusy += future->IsBusy() ? 1 : 0;
            task();
        }
        EXPECT_EQ(runs, 1);
        EXPECT_TRUE(future->IsNormal());
    });
    EXPECT_GT(failures, 0);
    EXPECT_GT(stayedBusy, 0);
}

// The clone is what needs memory. The run has failed all the same.
TEST(TaskWithoutMemory, FailsWithItsErrorOrWithLackOfMemory) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        const Future future(new FutureImpl<void>());
        future->MarkAsAttachedToTask();
        ASSERT_TRUE(future->Start());
        const CloneableExceptionBase error(Unexpected(L"failed"));
        ASSERT_TRUE(attempt.Succeeds([&] { future->SetException(error); }));
        ASSERT_TRUE(future->IsReady());
        if (attempt.HasFailed()) {
            EXPECT_THROW(future->GetValue(), std::bad_alloc);
        } else {
            EXPECT_THROW(future->GetValue(), Unexpected);
        }
    });
    EXPECT_GT(failures, 0);
}

TEST(TaskWithoutMemory, IsCancelledBeforeItsStart) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        int runs = 0;
        Future future;
        Task task = MakeTask(L"cancelled", [&runs] { ++runs; }, future);
        EXPECT_TRUE(attempt.Succeeds([&] { task.Cancel(); }));
        EXPECT_TRUE(future->IsCancelled());
        task();
        EXPECT_EQ(runs, 0);
    });
    EXPECT_EQ(failures, 0);
}

TEST(TaskWithoutMemory, ThatCancelsItselfLeavesAtOnce) {
    const ConcurrencyLifetime lifetime;
    ForEveryAllocation([](Attempt& attempt) {
        Future future;
        Task task;
        const auto cancelMyself = [&] {
            if (!attempt.Succeeds([&] { task.Cancel(); })) {
                task.Cancel();
            }
        };
        task = MakeTask(L"cancels itself", cancelMyself, future);
        task();
        EXPECT_TRUE(future->IsCancelled());
        task = Task();
    });
}

TEST(TaskWithoutMemory, IsWaitedForAndEmptied) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        int runs = 0;
        Task task = Counting(runs);
        task();
        EXPECT_TRUE(attempt.Succeeds([&] { task.Wait(); }));
        EXPECT_TRUE(task.IsCancelled());
    });
    EXPECT_EQ(failures, 0);
}

TEST(TaskWithoutMemory, IsWaitedForUntilATime) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        int runs = 0;
        Future future;
        Task task = MakeTask(L"timed", [&runs] { ++runs; }, future);
        const auto soon =
            std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now()) + std::chrono::milliseconds(1);
        bool ended = true;
        EXPECT_TRUE(attempt.Succeeds([&] { ended = future->TimedWait(soon); }));
        EXPECT_FALSE(ended);
        task();
        EXPECT_TRUE(future->TimedWait(soon));
    });
    EXPECT_EQ(failures, 0);
}

TEST(TaskWithoutMemory, ThatIsEmptyAnswersAllTheSame) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        Task task(L"empty", nullptr);
        EXPECT_TRUE(attempt.Succeeds([&] {
            EXPECT_TRUE(task.IsCancelled());
            EXPECT_FALSE(task.IsBusy());
            task.Cancel();
            task.Wait();
            task.Reset();
            task();
        }));
    });
    EXPECT_EQ(failures, 0);
}

}  // namespace
