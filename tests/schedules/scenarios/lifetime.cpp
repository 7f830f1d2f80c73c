// Initialisations and uninitialisations from several threads.

#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::ConcurrencyInitialize;
using Orvane::ConcurrencyUninitialize;
using Orvane::Internal::GlobalThreadPool;
using Orvane::Internal::IsConcurrencyInitialized;
using Schedules::Check;
using Schedules::Party;

}  // namespace

SCENARIO(LifetimesNestFromTwoThreads) {
    const auto nest = [] {
        const Orvane::ConcurrencyLifetime outer;
        Check(IsConcurrencyInitialized(), "it is initialised inside");
        const Orvane::ConcurrencyLifetime inner;
    };
    Party other(nest);
    nest();
    other.Join();
    Check(!IsConcurrencyInitialized(), "all is undone");
}

SCENARIO(LifetimeEndsWhileAnotherBegins, {.delays = true}) {
    ConcurrencyInitialize();
    GlobalThreadPool::Queue(Orvane::MakeTask(L"Task", [] {}));
    Party other([] {
        const Orvane::ConcurrencyLifetime lifetime;
        auto task = Orvane::MakeTask(L"Another", [] {});
        GlobalThreadPool::Queue(task);
        task.Wait();
    });
    ConcurrencyUninitialize();
    other.Join();
}
