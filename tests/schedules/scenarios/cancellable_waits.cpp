// A request before, during and after each cancellable wait. A wait that misses its request sleeps for ever.

#include "concurrency/base/windows_api.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::CancellableSleep;
using Schedules::Check;
using Schedules::Party;
using Schedules::TaskParty;

}  // namespace

SCENARIO(SleepWithoutLimitIsCancelled) {
    const Orvane::ConcurrencyLifetime lifetime;
    TaskParty sleeper([] {
        CancellableSleep(INFINITE);
        Schedules::Fail("a sleep without limit has ended by itself");
    });
    sleeper.Cancel();
    sleeper.Join();
    Check(sleeper.Future().IsCancelled(), "the run was cancelled");
}

SCENARIO(HandleWaitIsCancelled) {
    const Orvane::ConcurrencyLifetime lifetime;
    const HANDLE never = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    TaskParty waiter([never] {
        Orvane::CancellableWaitForSingleObject(never, INFINITE);
        Schedules::Fail("the event was never set");
    });
    waiter.Cancel();
    waiter.Join();
    Check(waiter.Future().IsCancelled(), "the run was cancelled");
    CloseHandle(never);
}
