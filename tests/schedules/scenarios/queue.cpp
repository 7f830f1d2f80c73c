// The pool's queue and the workers that sleep at it. A task that is left while a worker sleeps is a wait that never ends.

#include <atomic>

#include "concurrency/threadpool/thread_pool.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::MakeTask;
using Orvane::Internal::NullPolicy;
using Orvane::Internal::Task;
using Orvane::Internal::ThreadPool;
using Schedules::Check;
using Schedules::Party;

using Pool = ThreadPool<NullPolicy>;

// Each queues one task, which must run.
void QueuedTasksRun(std::uint64_t workers, int producers, int tasksOfEach) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::atomic<int> runs = 0;
    {
        Pool pool(workers);
        const auto produce = [&] {
            std::vector<Task> tasks;
            for (int i = 0; i < tasksOfEach; ++i) {
                tasks.push_back(MakeTask(L"Task", [&runs] { ++runs; }));
                pool.Core()->Queue(tasks.back());
            }
            for (Task& task : tasks) {
                task.Wait();
            }
        };
        std::vector<std::unique_ptr<Party>> others;
        for (int i = 1; i < producers; ++i) {
            others.push_back(std::make_unique<Party>(produce));
        }
        produce();
        others.clear();
    }
    Check(runs == producers * tasksOfEach, "each task has run once");
}

}  // namespace

SCENARIO(QueueWakesTheOnlyWorker) {
    QueuedTasksRun(1, 1, 1);
}

SCENARIO(QueueWakesOneOfTwoWorkers) {
    QueuedTasksRun(2, 1, 1);
}

SCENARIO(QueueWakesTwoWorkersForTwoTasks) {
    QueuedTasksRun(2, 1, 2);
}

SCENARIO(QueueOfTwoProducersWakesTheOnlyWorker) {
    QueuedTasksRun(1, 2, 1);
}

SCENARIO(QueueOfThreeWorkersTakesTwoTasks, {.delays = true}) {
    QueuedTasksRun(3, 1, 2);
}

// Two tasks that need each other: a wake-up that is not passed on leaves one of them in the queue.
SCENARIO(QueuedTasksThatNeedEachOtherBothRun) {
    const Orvane::ConcurrencyLifetime lifetime;
    Pool pool(2);
    const HANDLE first = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const HANDLE second = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    auto one = MakeTask(L"One", [&] {
        SetEvent(first);
        WaitForSingleObject(second, INFINITE);
    });
    auto other = MakeTask(L"Other", [&] {
        SetEvent(second);
        WaitForSingleObject(first, INFINITE);
    });
    pool.Core()->Queue(one);
    pool.Core()->Queue(other);
    one.Wait();
    other.Wait();
    CloseHandle(first);
    CloseHandle(second);
}

SCENARIO(StopFinishesWhatIsQueued) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::atomic<int> runs = 0;
    {
        Pool pool(1);
        pool.Core()->Queue(MakeTask(L"Task", [&runs] { ++runs; }));
    }
    Check(runs == 1, "shutdown finishes what is queued");
}

SCENARIO(StopCancelsWhatDoesNotEnd) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> running;
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> queued;
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> late;
    std::shared_ptr<Orvane::Internal::ThreadPoolCore> core;
    {
        Pool pool(1);
        core = pool.Core();
        pool.Core()->Queue(MakeTask(L"Running", [] { Orvane::CancellableSleep(INFINITE); }, running));
        pool.Core()->Queue(MakeTask(L"Queued", [] {}, queued));
    }
    Check(running->IsCancelled() && queued->IsCancelled(), "after the grace both are cancelled");
    core->Queue(MakeTask(L"Late", [] {}, late));
    late->Wait();
    Check(late->IsCancelled(), "and what comes later");
}

SCENARIO(StopAgainstALateCaller) {
    const Orvane::ConcurrencyLifetime lifetime;
    auto pool = std::make_unique<Pool>(1);
    const auto core = pool->Core();
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> future;
    auto task = MakeTask(L"Late", [] {}, future);
    Party caller([&] { core->Queue(task); });
    pool.reset();
    caller.Join();
    Check(!future->IsCancelling(), "a late task runs, waits in a stopped pool or is cancelled");
}
