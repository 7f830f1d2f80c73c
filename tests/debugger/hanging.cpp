// Stands still in a known state, for a debugger to look at through the DLL. Prints its process id when it does. Whoever has started it
// ends it.
#include <chrono>
#include <cstdio>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/debugger/awaited_waits.h"

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

fifo_mutex mutex;
Task running_task;
Job<void> outer_job;
DWORD owner_thread = 0;
DWORD first_waiter = 0;
DWORD second_waiter = 0;
DWORD inner_thread = 0;

int main() {
    const ConcurrencyLifetime lifetime;
    running_task = MakeTask(L"Running", [] { CancellableSleep(kWithoutEnd); });
    GlobalThreadPool::Queue(running_task);
    AwaitWait(L"Running", L"CancellableSleep");

    auto owner = RunInNewThread(L"Owner", [] {
        mutex.lock();
        mutex.lock();
        CancellableSleep(kWithoutEnd);
    });
    owner_thread = AwaitWait(L"Owner", L"CancellableSleep");
    auto first = RunInNewThread(L"First", [] { mutex.lock(); });
    first_waiter = AwaitWait(L"First", L"fifo_mutex::lock");
    auto second = RunInNewThread(L"Second", [] { mutex.lock(); });
    second_waiter = AwaitWait(L"Second", L"fifo_mutex::lock");

    outer_job = Orvane::Run(L"Outer", [] {
        AwaitNextTick();
        Orvane::Run(L"Inner", [] { CancellableSleep(kWithoutEnd); }).Wait();
    });
    inner_thread = AwaitWait(L"Inner", L"CancellableSleep");
    AwaitWait(L"Outer", L"a wait for");

    const TimePoint day(std::chrono::hours(24 * 365 * 200));  // in 2169, so that it does not come due
    GlobalScheduler::Insert({MakeTask(L"Late", [] {}), day, std::chrono::milliseconds(1500)});

    std::printf("ready %lu\n", ::GetCurrentProcessId());
    std::fflush(stdout);
    ::Sleep(kWithoutEnd);
}
