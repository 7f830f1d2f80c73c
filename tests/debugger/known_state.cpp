// A program that stops in Here() in a known state, for a debugger to look at. It ends there.
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/errors/error_storage.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/scheduled_task_queue.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/debugger/awaited_waits.h"
#include "tests/debugger/known_runs.h"

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

namespace {

HANDLE NeverSignalled() {
    static const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return event;
}

void WaitForEver() {
    CancellableWaitForSingleObject(NeverSignalled(), kWithoutEnd);
}

std::shared_ptr<FutureImpl<void>> MakeFuture() {
    return std::shared_ptr<FutureImpl<void>>(new FutureImpl<void>());
}

}  // namespace

// Where the debugger stops. What it looks at is in globals, so that it need not look for the frame of main().
extern "C" __attribute__((noinline)) void Here() {
    std::_Exit(0);
}

fifo_mutex free_mutex;

Task no_task;
Task moved_task;
Task running_task;
Task queued_task;
Task ended_task;
Task waited_task;
Task cancelled_task;

std::array<std::shared_ptr<FutureImpl<void>>, 6> futures;
std::shared_ptr<CancellationObject> cancellation;

Job<int> no_job;
Job<int> done_job;
Job<void> deaf_job;
GroupJob<void> group_job;
ScheduledTask late_task;

ThreadPoolCore* small_pool = nullptr;

// What is no object, and what was one.
Task* null_task = nullptr;
alignas(16) unsigned char torn[1024];
Task* torn_task = reinterpret_cast<Task*>(torn);
FutureState* torn_future = reinterpret_cast<FutureState*>(torn);
CancellationObject* torn_cancellation = reinterpret_cast<CancellationObject*>(torn);
Job<int>* torn_job = reinterpret_cast<Job<int>*>(torn);
fifo_mutex* torn_mutex = reinterpret_cast<fifo_mutex*>(torn);
ThreadPoolCore* torn_pool = reinterpret_cast<ThreadPoolCore*>(torn);
ScheduledTaskQueue* torn_schedule = reinterpret_cast<ScheduledTaskQueue*>(torn);

int main() {
    const ConcurrencyLifetime lifetime;
    std::memset(torn, 0xAB, sizeof torn);

    for (auto& future : futures) {
        future = MakeFuture();
    }
    static_cast<void>(futures[1]->Start());
    static_cast<void>(futures[2]->Start());
    futures[2]->SetValue();
    static_cast<void>(futures[3]->Start());
    try {
        futures[3]->RequestCancel();
    } catch (const CancelRequestedException&) {  // the request has been made all the same
    }
    futures[4]->RequestCancel();
    static_cast<void>(futures[5]->Start());
    futures[5]->SetException(CloneableExceptionBase(ExceptionBase(ErrorStorage())));

    // In the order in which they are to be listed: the longest first.
    std::shared_ptr<FutureImpl<void>> future;
    running_task = MakeTask(L"Running", &WaitForEver, future);
    GlobalThreadPool::Queue(running_task);
    AwaitWait(L"Running", L"CancellableWaitForSingleObject");
    cancellation = future->GetCancellationObject();

    const KnownRuns runs(&WaitForEver, L"CancellableWaitForSingleObject");
    deaf_job = RunInNewThread(L"Deaf", [] { WaitForSingleObject(NeverSignalled(), kWithoutEnd); });
    AwaitWait(L"Deaf", L"");  // any, or none
    deaf_job.Cancel();
    done_job = Orvane::Run(L"Done", [] { return 42; });
    done_job.Wait();

    static JobGroup group(L"Group", 1);
    group_job = group.Run(L"In a group", &WaitForEver);
    AwaitWait(L"In a group", L"CancellableWaitForSingleObject");

    ended_task = MakeTask(L"Ended", [] {});
    ended_task();
    waited_task = MakeTask(L"Waited for", [] {});
    waited_task();
    waited_task.Wait();
    cancelled_task = MakeTask(L"Cancelled", [] {});
    cancelled_task.Cancel();
    moved_task = MakeTask(L"Moved", [] {});
    const Task taken = std::move(moved_task);

    ThreadPool<NullPolicy> pool(1);  // does not grow: what comes second stays in its queue
    small_pool = pool.Core().get();
    const Task blocking = MakeTask(L"Blocking", &WaitForEver);
    pool.Core()->Queue(blocking);
    AwaitWait(L"Blocking", L"CancellableWaitForSingleObject");
    queued_task = MakeTask(L"Queued", [] {});
    pool.Core()->Queue(queued_task);

    const TimePoint day(std::chrono::hours(24 * 365 * 200));  // in 2169, so that none comes due
    late_task = ScheduledTask(MakeTask(L"Late", [] {}), day + std::chrono::hours(1), Duration::zero());
    GlobalScheduler::Insert(late_task);
    GlobalScheduler::Insert({MakeTask(L"Early", [] {}), day, std::chrono::milliseconds(1500)});

    Here();
}
