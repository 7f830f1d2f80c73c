// Handles of a task against its run.

#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::MakeTask;
using Orvane::Internal::Task;
using Schedules::Check;
using Schedules::Party;
using Schedules::TaskParty;

}  // namespace

SCENARIO(TaskIsWaitedForAndDropped) {
    const Orvane::ConcurrencyLifetime lifetime;
    auto value = std::make_shared<int>(0);
    const std::weak_ptr<int> seen = value;
    {
        auto task = MakeTask(L"Task", [value = std::move(value)] { *value = 1; });
        Party run([task]() mutable {
            Task own = std::exchange(task, Task());
            own();
        });
        task.Wait();
        Check(seen.expired(), "a callable that returned is gone before the wait ends");
        run.Join();
    }
}

SCENARIO(ResetOutsideOfARunAgainstItsBegin) {
    const Orvane::ConcurrencyLifetime lifetime;
    int runs = 0;
    auto task = MakeTask(L"Task", [&runs] { ++runs; });
    Party run([task]() mutable { task(); });
    Party resetter([task]() mutable { task.Reset(); });
    run.Join();
    resetter.Join();
    Check(runs == 1 && !task.IsBusy(), "it has run once");
}

SCENARIO(ResetInsideOfARunAgainstAWait) {
    const Orvane::ConcurrencyLifetime lifetime;
    int runs = 0;
    Task task;
    task = MakeTask(L"Task", [&] {
        ++runs;
        task.Reset();
    });
    Task handle = task;
    Party run([&] { task(); });
    Party ender([&] {
        run.Join();
        Task(handle).Cancel();
    });
    handle.Wait();
    Check(!handle.IsBusy(), "nothing runs when the wait has ended");
    ender.Join();
    Check(runs == 1, "each start runs once");
}

SCENARIO(ResetInsideOfARunAgainstACancel) {
    const Orvane::ConcurrencyLifetime lifetime;
    Task task;
    task = MakeTask(L"Task", [&] {
        Orvane::CancellationPoint();
        task.Reset();
    });
    Party run([&] {
        task();
        task();
    });
    task.Cancel();
    run.Join();
    Check(task.IsCancelled(), "a cancelled task stays so");
}

SCENARIO(TaskCancelsItselfWhileItIsWaitedFor) {
    const Orvane::ConcurrencyLifetime lifetime;
    Task task;
    bool isPast = false;
    task = MakeTask(L"Task", [&] {
        task.Cancel();
        isPast = true;
    });
    Task handle = task;
    Party run([&] { handle(); });
    handle.Wait();
    run.Join();
    Check(!isPast, "its own request throws");
}

SCENARIO(WaitingTaskIsCancelledAndPassesItOn) {
    const Orvane::ConcurrencyLifetime lifetime;
    TaskParty inner([] { Orvane::CancellableSleep(INFINITE); });
    TaskParty outer([&] { inner.Task().Wait(); });
    outer.Cancel();
    inner.Cancel();
    outer.Join();
    inner.Join();
    Check(inner.Future().IsCancelled(), "the inner run was cancelled");
}

SCENARIO(EndRunAgainstARunThatResets) {
    const Orvane::ConcurrencyLifetime lifetime;
    int inside = 0;
    Task task;
    task = MakeTask(L"Task", [&] {
        ++inside;
        task.Reset();
        --inside;
    });
    Party run([&] { task(); });
    Task handle = task;
    handle.EndRun();
    run.Join();
    Check(inside == 0, "the run has been left");
}
