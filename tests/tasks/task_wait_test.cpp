// Waiting for a task.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/task_thread.h"
#include "tests/tasks/task_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

template <typename Thread>
bool StillWaits(const Thread& thread) {
    return !Eventually([&] { return thread.HasEnded(); }, 50ms);
}

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

// A task whose first run is awaited while it is started afresh.
class TaskWaitResetTest : public testing::Test {
  protected:
    void SetUp() override {
        m_firstFuture = AttachedFutureIn(State::Busy);
        m_secondFuture = AttachedFutureIn(State::NotStarted);
        m_second = std::make_shared<ScriptedState>(m_secondFuture);
        const auto first = std::make_shared<ScriptedState>(m_firstFuture);
        first->recreate = [this] { return m_second; };
        m_task = Task(L"", first);
        m_waiter = std::make_unique<SleepingWaiter>([task = m_task]() mutable { task.Wait(); }, *m_firstFuture);
        m_task.Reset();
        ASSERT_EQ(m_task.GetWrapper(), m_second);
    }

    bool WaiterReturns() {
        return Eventually([&] { return m_waiter->HasEnded(); });
    }

    FuturePointer m_firstFuture;
    FuturePointer m_secondFuture;
    std::shared_ptr<ScriptedState> m_second;
    Task m_task;
    std::unique_ptr<SleepingWaiter> m_waiter;
};

TEST_F(TaskWaitResetTest, WaitsForANewerRunThatIsBusy) {
    StartRun(*m_secondFuture, RunsOn::AnotherThread);
    m_firstFuture->SetValue();

    EXPECT_TRUE(StillWaits(*m_waiter));
    EXPECT_TRUE(m_task.IsBusy()) << "a handle calls a running task idle";
    EXPECT_EQ(m_task.GetWrapper(), m_second);
    m_secondFuture->SetValue();
    EXPECT_TRUE(WaiterReturns());
    ExpectEmptied(m_task);
}

TEST_F(TaskWaitResetTest, WaitsForANewerRunThatIsCancelling) {
    StartRun(*m_secondFuture, RunsOn::AnotherThread);
    m_secondFuture->RequestCancel();
    m_firstFuture->SetValue();

    EXPECT_TRUE(StillWaits(*m_waiter));
    m_secondFuture->ConfirmCancel();
    EXPECT_TRUE(WaiterReturns());
    ExpectEmptied(m_task);
}

TEST_F(TaskWaitResetTest, DropsANewerStateThatHasNotStarted) {
    m_firstFuture->SetValue();

    EXPECT_TRUE(WaiterReturns());
    ExpectEmptied(m_task);
    EXPECT_EQ(StateOf(*m_secondFuture), State::NotStarted);
}

TEST_F(TaskWaitResetTest, DropsANewerRunThatHasEnded) {
    End(*m_secondFuture, State::Error);
    m_firstFuture->SetValue();

    EXPECT_TRUE(WaiterReturns());
    ExpectEmptied(m_task);
}

TEST_F(TaskWaitResetTest, WaitsForEveryNewerRunThatIsBusy) {
    const FuturePointer thirdFuture = AttachedFutureIn(State::Busy);
    const auto third = std::make_shared<ScriptedState>(thirdFuture);
    m_second->recreate = [&] { return third; };
    StartRun(*m_secondFuture, RunsOn::AnotherThread);
    m_firstFuture->SetValue();
    ASSERT_TRUE(StillWaits(*m_waiter));
    m_task.Reset();
    m_secondFuture->SetValue();

    EXPECT_TRUE(StillWaits(*m_waiter));
    thirdFuture->SetValue();
    EXPECT_TRUE(WaiterReturns());
    ExpectEmptied(m_task);
}

TEST_F(TaskWaitResetTest, CancelReachesTheNewerRunOnly) {
    StartRun(*m_secondFuture, RunsOn::AnotherThread);
    m_task.Cancel();

    EXPECT_EQ(StateOf(*m_firstFuture), State::Busy);
    EXPECT_EQ(StateOf(*m_secondFuture), State::Cancelling);
    m_firstFuture->SetValue();
    EXPECT_TRUE(StillWaits(*m_waiter));
    m_secondFuture->ConfirmCancel();
    EXPECT_TRUE(WaiterReturns());
}

}  // namespace
