// Starting a task afresh.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <utility>

#include "concurrency/tasks/make_task.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/task_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(TaskReset, GivesTheTaskAFreshStateForTheSameWork) {
    int runs = 0;
    Task task = MakeTask(L"again", [&runs] { ++runs; });
    const auto before = task.GetWrapper();
    task.Reset();

    EXPECT_NE(task.GetWrapper(), before);
    EXPECT_EQ(StateOf(*task.GetWrapper()->GetFuture()), State::NotStarted);
    EXPECT_STREQ(task.GetName(), L"again");
    task();
    EXPECT_EQ(runs, 1);
}

TEST(TaskReset, DuringARunMakesTheTaskRunnableOnceMore) {
    int runs = 0;
    Task task;
    task = MakeTask(L"", [&] {
        ++runs;
        task.Reset();
    });
    task();
    task();
    task();

    EXPECT_EQ(runs, 3);
}

TEST(TaskReset, AfterANormalRunKeepsTheOldState) {
    int runs = 0;
    Task task = MakeTask(L"", [&runs] { ++runs; });
    task();
    const auto before = task.GetWrapper();
    task.Reset();

    EXPECT_EQ(task.GetWrapper(), before);
    EXPECT_EQ(StateOf(*before->GetFuture()), State::Normal);
    task();
    EXPECT_EQ(runs, 1);
}

TEST(TaskReset, AfterAFailedRunAllowsAnother) {
    int runs = 0;
    Task task = MakeTask(L"", [&runs] {
        if (++runs == 1) {
            throw Failure(1);
        }
    });
    task();
    task.Reset();
    task();

    EXPECT_EQ(runs, 2);
    EXPECT_EQ(StateOf(*task.GetWrapper()->GetFuture()), State::Normal);
}

TEST(TaskReset, AfterCancelLeavesTheCancelledStateInPlace) {
    Task task = MakeTask(L"", [] {});
    task.Cancel();
    const auto before = task.GetWrapper();
    task.Reset();

    EXPECT_EQ(task.GetWrapper(), before);
    EXPECT_TRUE(task.IsCancelled());
}

TEST(TaskReset, OfARunThatIsBeingCancelledIsRefused) {
    for (const State state : {State::Cancelling, State::Cancelled}) {
        auto scripted = ScriptedIn(state);
        scripted->recreate = [] { return ScriptedIn(State::NotStarted); };
        Task task(L"", scripted);
        task.Reset();

        EXPECT_EQ(task.GetWrapper(), scripted) << state;
    }
}

TEST(TaskReset, DoesNotClearACancellation) {
    // Cancelled through the handle, but the run had ended before.
    auto scripted = ScriptedIn(State::Normal);
    scripted->recreate = [] { return ScriptedIn(State::NotStarted); };
    Task task(L"", scripted);
    task.Cancel();
    task.Reset();

    EXPECT_TRUE(task.IsCancelled());
    EXPECT_EQ(task.GetWrapper(), scripted);
}

TEST(TaskReset, AfterAWaitDoesNothing) {
    Task task = MakeTask(L"", [] {});
    task();
    task.Wait();
    task.Reset();

    ExpectEmptied(task);
}

TEST(TaskReset, KeepsTheOldStateWhenTheWorkIsGone) {
    const auto state = ScriptedIn(State::NotStarted);  // recreates nothing
    Task task(L"", state);
    task.Reset();

    EXPECT_EQ(task.GetWrapper(), state);
}

TEST(TaskReset, FailureToCopyTheWorkIsPassedOnAndChangesNothing) {
    const auto state = ScriptedIn(State::NotStarted);
    state->recreate = []() -> std::shared_ptr<ITaskState> { throw std::runtime_error("no copy"); };
    Task task(L"", state);

    EXPECT_THROW(task.Reset(), std::runtime_error);
    EXPECT_EQ(task.GetWrapper(), state);
    PlainThread([&] { EXPECT_FALSE(task.IsBusy()); }).Join();  // the lock is free
}

TEST(TaskReset, DestroysTheOldStateOutsideOfTheTasksLock) {
    Task task;
    bool asked = false;
    {
        auto state = ScriptedIn(State::NotStarted);
        state->recreate = [] { return ScriptedIn(State::NotStarted); };
        state->destroyed = [&] {
            PlainThread([&] { (void)task.IsBusy(); }).Join();
            asked = true;
        };
        task = Task(L"", std::move(state));
    }
    task.Reset();

    EXPECT_TRUE(asked);
}

}  // namespace
