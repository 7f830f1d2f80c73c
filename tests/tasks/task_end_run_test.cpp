// Ending a run that the task no longer knows: it has reset the task, or cancelled itself.
#include <gtest/gtest.h>

#include <atomic>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/task_fixture.h"
#include "tests/threadpool/at_end.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(TaskEndRun, CancelsARunThatHasResetItsTaskAndWaitsForIt) {
    Gate isReset;
    Gate mayLeave;
    std::atomic<bool> wasCancelled = false;
    Task task;
    task = MakeTask(L"", [&] {
        task.Reset();
        isReset.Open();
        try {
            CancellableSleep(INFINITE);
        } catch (const CancelRequestedException&) {
            wasCancelled = true;
            mayLeave.Wait();
            throw;
        }
    });
    const PlainThread runner([run = task]() mutable { run(); });
    isReset.Wait();
    PlainThread ender([run = task]() mutable { run.EndRun(); });

    EXPECT_TRUE(Eventually([&] { return wasCancelled.load(); }));
    EXPECT_TRUE(StillWaits(ender));
    mayLeave.Open();
    EXPECT_TRUE(Eventually([&] { return ender.HasEnded(); }));
    EXPECT_FALSE(task.IsCancelled()) << "the new state is not concerned";
}

TEST(TaskEndRun, WaitsForARunThatHasCancelledItselfAsWaitDoesNot) {
    Gate leaving;
    Gate mayLeave;
    Task task;
    task = MakeTask(L"", [&] {
        const auto last = AtEnd([&] {
            leaving.Open();
            mayLeave.Wait();
        });
        task.Cancel();
    });
    const PlainThread runner([run = task]() mutable { run(); });
    leaving.Wait();
    ASSERT_TRUE(IsEmptied(task));
    PlainThread waiter([awaited = task]() mutable { awaited.Wait(); });
    PlainThread ender([run = task]() mutable { run.EndRun(); });

    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); })) << "Wait() has an emptied task";
    EXPECT_TRUE(StillWaits(ender));
    mayLeave.Open();
    EXPECT_TRUE(Eventually([&] { return ender.HasEnded(); }));
}

TEST(TaskEndRun, ReturnsAtOnceWithoutARunAndChangesNothing) {
    Task never = MakeTask(L"", [] {});
    never.EndRun();
    EXPECT_FALSE(never.IsCancelled());

    Task ended = MakeTask(L"", [] {});
    ended();
    ended.EndRun();
    EXPECT_FALSE(ended.IsCancelled());

    Task().EndRun();
}

TEST(TaskEndRun, InTheRunItselfReturnsAtOnce) {
    bool returned = false;
    FuturePointer future;
    Task task;
    task = MakeTask(
        L"",
        [&] {
            task.EndRun();
            returned = true;
        },
        future);
    task();

    EXPECT_TRUE(returned);
    EXPECT_TRUE(future->IsNormal());
}

}  // namespace
