// Has the scheduler need a pool that cannot be made.
#include <exception>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"
#include "tests/support/gate.h"
#include "tests/support/say_why.h"
#include "tests/threadpool/thread_starts.h"

int main() {
    using namespace Zarvo::Test;
    std::set_terminate(&SayWhy);
    ThreadStarts starts;
    starts.FailAt(2);  // the first is the scheduler's own
    const Orvane::ConcurrencyLifetime lifetime;
    Orvane::Internal::GlobalScheduler::Insert(
        Orvane::Internal::ScheduledTask(Orvane::MakeTask(L"due", [] {}), k1970, kOnce));
    Gate never;
    never.Wait();
}
