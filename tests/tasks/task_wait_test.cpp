// Waiting for a task.
#include <gtest/gtest.h>

#include <memory>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/allocations.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/task_thread.h"
#include "tests/tasks/task_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(TaskWait, WaitsForTheRunAndEmptiesTheTask) {
    Gate gate;
    TaskThread thread([&] { gate.Wait(); });
    Task task = thread.GetTask();
    PlainThread waiter([&] { task.Wait(); });
    ASSERT_TRUE(StillWaits(waiter));
    EXPECT_TRUE(task.IsBusy());

    gate.Open();
    ASSERT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
    ExpectEmptied(task);
}

TEST(TaskWait, ReturnsAtOnceTheSecondTime) {
    Task task = MakeTask(L"", [] {});
    task();
    task.Wait();
    task.Wait();

    ExpectEmptied(task);
}

TEST(TaskWait, LeavesAStateThatCanBeReferredToWeakly) {
    Task task = MakeTask(L"", [] {});
    task();
    task.Wait();
    const std::weak_ptr<ITaskState> empty = task.GetWrapper();
    task = {};

    EXPECT_EQ(empty.lock(), Task().GetWrapper());
    EXPECT_NE(empty.lock(), nullptr);
}

TEST(TaskWait, NeedsNoMemoryToEmptyTheTask) {
    Task task = MakeTask(L"", [] {});
    task();
    {
        const NoMemory none;
        EXPECT_NO_THROW(task.Wait());
    }
    ExpectEmptied(task);
}

TEST(TaskWait, WaitsForATaskThatHasNotStarted) {
    Task task = MakeTask(L"", [] {});
    PlainThread waiter([&] { task.Wait(); });
    ASSERT_TRUE(StillWaits(waiter));

    task();
    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
}

TEST(TaskWait, EndsWhenATaskThatHasNotStartedIsCancelled) {
    Task task = MakeTask(L"", [] {});
    PlainThread waiter([&] { task.Wait(); });
    ASSERT_TRUE(StillWaits(waiter));

    task.Cancel();
    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
    ExpectEmptied(task);
}

TEST(TaskWait, WaitsUntilACancelledRunHasEnded) {
    Gate mayEnd;
    TaskThread thread([&] {
        try {
            for (;;) {
                CancellableSleep(INFINITE);
            }
        } catch (const CancelRequestedException&) {
            mayEnd.Wait();
            throw;
        }
    });
    Task task = thread.GetTask();
    task.Cancel();
    PlainThread waiter([&] { task.Wait(); });
    ASSERT_TRUE(StillWaits(waiter));

    mayEnd.Open();
    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
    EXPECT_TRUE(thread.EndedCancelled());
}

TEST(TaskWait, ThrowsNeitherTheTasksExceptionNorItsCancellation) {
    Task failed = MakeTask(L"", [] { throw Failure(1); });
    failed();
    EXPECT_NO_THROW(failed.Wait());

    Task cancelled = MakeTask(L"", [] {});
    cancelled.Cancel();
    EXPECT_NO_THROW(cancelled.Wait());
}

TEST(TaskWait, LetsGoOfTheCallableAndTheFuture) {
    auto bound = std::make_shared<int>(0);
    const std::weak_ptr<int> watchedBound = bound;
    Task task = MakeTask(L"", [bound] { throw Failure(1); });
    bound.reset();
    const std::weak_ptr<IFutureState> watchedFuture = task.GetWrapper()->GetFuture();
    task();
    EXPECT_FALSE(watchedBound.expired());  // a callable that threw is kept
    task.Wait();

    EXPECT_TRUE(watchedBound.expired());
    EXPECT_TRUE(watchedFuture.expired());
}

TEST(TaskWait, DestroysTheCallableOutsideOfTheTasksLock) {
    struct AsksBack {
        explicit AsksBack(Task& asked) : task(&asked) {}
        ~AsksBack() {
            PlainThread([this] { (void)task->IsBusy(); }).Join();
        }
        Task* task;
    };
    Task task;
    task = MakeTask(L"", [asks = std::make_shared<AsksBack>(task)] {});
    task.Cancel();
    task.Wait();

    ExpectEmptied(task);
}

// The state of a task that was reset meanwhile: here the wait lets go of it last.
TEST(TaskWait, DestroysANewerStateOutsideOfTheTasksLock) {
    const FuturePointer future = AttachedFutureIn(State::Busy);
    const auto first = std::make_shared<ScriptedState>(future);
    auto newer = ScriptedIn(State::NotStarted);
    Task task(L"", first);
    std::unique_ptr<PlainThread> asker;
    bool answered = false;
    newer->destroyed = [&] {
        asker = std::make_unique<PlainThread>([&] { (void)task.GetName(); });
        answered = Eventually([&] { return asker->HasEnded(); });
    };
    first->recreate = [&] { return std::move(newer); };
    SleepingWaiter waiter([task]() mutable { task.Wait(); }, *future);
    task.Reset();
    future->SetValue();

    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }, 2 * kPatience));
    EXPECT_TRUE(answered);
    ExpectEmptied(task);
}

TEST(TaskWait, OfACancelledTaskLeavesTheAwaitedOneUnchanged) {
    const FuturePointer future = AttachedFutureIn(State::Busy);
    const auto state = std::make_shared<ScriptedState>(future);
    Task awaited(L"", state);
    TaskThread waiter([&] {
        GetCancellationObject()->RequestCancel();
        EXPECT_THROW(awaited.Wait(), CancelRequestedException);
    });
    ASSERT_TRUE(Eventually([&] { return !waiter.IsRunning(); }));

    EXPECT_EQ(awaited.GetWrapper(), state);
    EXPECT_TRUE(awaited.IsBusy());
    EXPECT_FALSE(awaited.IsCancelled());
    future->SetValue();
}

TEST(TaskWait, CancelledMeanwhileLeavesTheAwaitedTaskUnchanged) {
    const FuturePointer future = AttachedFutureIn(State::Busy);
    const auto state = std::make_shared<ScriptedState>(future);
    Task awaited(L"", state);
    SleepingWaiter waiter([&] { awaited.Wait(); }, *future);
    waiter.Cancel();
    future->SetValue();

    EXPECT_TRUE(waiter.EndedCancelled());
    EXPECT_EQ(awaited.GetWrapper(), state);
}

TEST(TaskWait, AllWaitersReturn) {
    Gate gate;
    TaskThread thread([&] { gate.Wait(); });
    Task task = thread.GetTask();
    PlainThread first([&] { task.Wait(); });
    PlainThread second([&] { task.Wait(); });
    ASSERT_TRUE(StillWaits(first) && StillWaits(second));

    gate.Open();
    EXPECT_TRUE(Eventually([&] { return first.HasEnded() && second.HasEnded(); }));
    ExpectEmptied(task);
}

TEST(TaskWait, OfARunThatHasCancelledItselfDoesNotWaitForItself) {
    bool returned = false;
    Task task;
    task = MakeTask(L"", [&] {
        EXPECT_THROW(task.Cancel(), CancelRequestedException);
        task.Wait();
        returned = true;
    });
    task();

    EXPECT_TRUE(returned);
    ExpectEmptied(task);
}

}  // namespace
