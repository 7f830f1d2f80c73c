// A request before, during and after each cancellable wait. A wait that misses its request sleeps for ever.

#include <condition_variable>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/condition_notification_adapter.h"
#include "concurrency/cancellation/future_notification_adapter.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::CancellableSleep;
using Schedules::Check;
using Schedules::Party;
using Schedules::TaskParty;

// Cancels a run that would never end, at any of its steps.
void CancelEndsTheRun(const std::function<void()>& body) {
    const Orvane::ConcurrencyLifetime lifetime;
    TaskParty waiter(body);
    waiter.Cancel();
    waiter.Join();
    Check(waiter.Future().IsCancelled(), "the run was cancelled");
}

[[noreturn]] void Unreachable() {
    Schedules::Fail("a wait without limit has ended by itself");
}

}  // namespace

SCENARIO(SleepWithoutLimitIsCancelled) {
    CancelEndsTheRun([] {
        CancellableSleep(INFINITE);
        Unreachable();
    });
}

SCENARIO(SleepIsCancelledAtItsEnd, {.patience = 1000 * Schedules::kMillisecond}) {
    const Orvane::ConcurrencyLifetime lifetime;
    TaskParty sleeper([] {
        CancellableSleep(1000);
        CancellableSleep(1000);
    });
    sleeper.Cancel();
    sleeper.Join();
    Check(sleeper.Future().IsCancelled() || sleeper.Future().IsNormal(), "the run has ended");
}

// The notifier of the first wait is gone when the second one registers its own.
SCENARIO(SecondWaitOfARunIsCancelled) {
    const HANDLE isSet = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    CancelEndsTheRun([isSet] {
        Orvane::CancellableWaitForSingleObject(isSet, INFINITE);
        CancellableSleep(INFINITE);
        Unreachable();
    });
    CloseHandle(isSet);
}

SCENARIO(HandleWaitIsCancelled) {
    const HANDLE never = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    CancelEndsTheRun([never] {
        Orvane::CancellableWaitForSingleObject(never, INFINITE);
        Unreachable();
    });
    CloseHandle(never);
}

SCENARIO(WaitForSeveralHandlesIsCancelled) {
    const HANDLE never[] = {CreateEventW(nullptr, FALSE, FALSE, nullptr), CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    CancelEndsTheRun([&never] {
        Orvane::CancellableWaitForMultipleObjects(2, never, INFINITE);
        Unreachable();
    });
    CloseHandle(never[0]);
    CloseHandle(never[1]);
}

SCENARIO(HandleIsSetAgainstARequest) {
    const Orvane::ConcurrencyLifetime lifetime;
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    bool wasSignalled = false;
    TaskParty waiter([&] {
        Check(Orvane::CancellableWaitForSingleObject(event, INFINITE) == WAIT_OBJECT_0,
              "the event itself ends the wait");
        wasSignalled = true;
    });
    Party setter([&] { SetEvent(event); });
    waiter.Cancel();
    waiter.Join();
    setter.Join();
    Check(wasSignalled ? waiter.Future().IsNormal() : waiter.Future().IsCancelled(), "one of the two ends the wait");
    CloseHandle(event);
}

// The second wait may use the event of the first one. A signal that was for the first must not end it.
SCENARIO(EventOfACancelledWaitDoesNotWakeAnother, {.patience = 0}) {
    const Orvane::ConcurrencyLifetime lifetime;
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    TaskParty first([&] { Orvane::CancellableWaitForSingleObject(event, INFINITE); });
    Party setter([&] { SetEvent(event); });
    first.Cancel();
    first.Join();
    setter.Join();
    TaskParty second([&] {
        const HANDLE never = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        Check(Orvane::CancellableWaitForSingleObject(never, 50) == WAIT_TIMEOUT, "nothing ends the second wait");
        CloseHandle(never);
    });
    second.Join();
    CloseHandle(event);
}

SCENARIO(ConditionWaitIsCancelled) {
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
    CancelEndsTheRun([&] {
        std::unique_lock lock(mutex);
        for (;;) {
            Orvane::Internal::CancellableConditionWait(mutex, condition, nullptr, [&] { condition.wait(lock); });
        }
    });
}

SCENARIO(FifoLockIsCancelledWhileAnotherHoldsIt) {
    Orvane::fifo_mutex mutex;
    mutex.lock();
    CancelEndsTheRun([&] {
        mutex.lock();
        Unreachable();
    });
    mutex.unlock();
    Check(mutex.try_lock(), "the mutex is free");
    mutex.unlock();
}

SCENARIO(TwoTasksCancelEachOther) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> futures[2];
    Orvane::Internal::Task tasks[2];
    for (int i = 0; i < 2; ++i) {
        tasks[i] = Orvane::MakeTask(
            L"One of two",
            [&futures, i] {
                const auto passedOn = Orvane::Internal::FutureNotificationAdapter::CreateInstance(futures[1 - i]);
                Orvane::CancellationPoint();
            },
            futures[i]);
    }
    Party first([task = tasks[0]]() mutable { task(); });
    Party second([task = tasks[1]]() mutable { task(); });
    Party requester([task = tasks[0]]() mutable { task.Cancel(); });
    tasks[1].Cancel();
    first.Join();
    second.Join();
    requester.Join();
    for (const auto& future : futures) {
        Check(future->IsNormal() || future->IsCancelled(), "each has an outcome");
    }
}

SCENARIO(TwoHandleWaitsHaveAnEventEach) {
    const Orvane::ConcurrencyLifetime lifetime;
    const HANDLE never = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const HANDLE isSet = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    {
        TaskParty before([&] { Orvane::CancellableWaitForSingleObject(isSet, INFINITE); });  // leaves a spare event
        before.Join();
    }
    TaskParty first([&] { Orvane::CancellableWaitForSingleObject(never, INFINITE); });
    TaskParty second([&] {
        Check(Orvane::CancellableWaitForSingleObject(never, 50) == WAIT_TIMEOUT, "a request ends one of two waits");
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    first.Cancel();
    first.Join();
    second.Join();
    Check(first.Future().IsCancelled(), "the run was cancelled");
    CloseHandle(never);
    CloseHandle(isSet);
}

// Both runs have registered: each request wants the other's future while it holds its own.
SCENARIO(TwoRequestsPassEachOther) {
    const Orvane::ConcurrencyLifetime lifetime;
    const HANDLE leave = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE ready[2];
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> futures[2];
    Orvane::Internal::Task tasks[2];
    for (int i = 0; i < 2; ++i) {
        ready[i] = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        tasks[i] = Orvane::MakeTask(
            L"One of two",
            [&, i] {
                const auto passedOn = Orvane::Internal::FutureNotificationAdapter::CreateInstance(futures[1 - i]);
                SetEvent(ready[i]);
                WaitForSingleObject(leave, INFINITE);
                Orvane::CancellationPoint();
            },
            futures[i]);
    }
    Party first([task = tasks[0]]() mutable { task(); });
    Party second([task = tasks[1]]() mutable { task(); });
    WaitForSingleObject(ready[0], INFINITE);
    WaitForSingleObject(ready[1], INFINITE);
    Party requester([future = futures[0]] { future->RequestCancel(); });
    futures[1]->RequestCancel();
    requester.Join();
    SetEvent(leave);
    first.Join();
    second.Join();
    for (int i = 0; i < 2; ++i) {
        Check(futures[i]->IsCancelled(), "each was cancelled");
        CloseHandle(ready[i]);
    }
    CloseHandle(leave);
}
