// The pool's queue and the workers that sleep at it. A task that is left while a worker sleeps is a wait that never ends.

#include <atomic>

#include "concurrency/threadpool/thread_pool.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::MakeTask;
using Orvane::Internal::NullPolicy;
using Orvane::Internal::ThreadPool;
using Schedules::Check;
using Schedules::Party;

using Pool = ThreadPool<NullPolicy>;

}  // namespace

SCENARIO(QueueWakesTheOnlyWorker) {
    const Orvane::ConcurrencyLifetime lifetime;
    Pool pool(1);
    auto task = MakeTask(L"Task", [] {});
    pool.Core()->Queue(task);
    task.Wait();
}
