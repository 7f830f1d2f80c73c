// Stands still in a known state, for a debugger to look at through the DLL. Prints its process id when it does. Whoever has started it
// ends it.
#include <chrono>
#include <cstdio>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/debugger/awaited_waits.h"
#include "tests/debugger/known_runs.h"

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

Task running_task;

int main() {
    const ConcurrencyLifetime lifetime;
    running_task = MakeTask(L"Running", [] { CancellableSleep(kWithoutEnd); });
    GlobalThreadPool::Queue(running_task);
    AwaitWait(L"Running", L"CancellableSleep");

    const KnownRuns runs([] { CancellableSleep(kWithoutEnd); }, L"CancellableSleep");

    const TimePoint day(std::chrono::hours(24 * 365 * 200));  // in 2169, so that it does not come due
    GlobalScheduler::Insert({MakeTask(L"Late", [] {}), day, std::chrono::milliseconds(1500)});

    std::printf("ready %lu\n", ::GetCurrentProcessId());
    std::fflush(stdout);
    ::Sleep(kWithoutEnd);
}
