// What a program of somebody else does first: bracket the use, run a task on the pool, read its outcome.
#include <cstdio>
#include <memory>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"

int main() {
    const Orvane::ConcurrencyLifetime lifetime;
    bool ran = false;
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> outcome;
    Orvane::Internal::Task task = Orvane::MakeTask(L"Consumer", [&ran] { ran = true; }, outcome);
    Orvane::Internal::GlobalThreadPool::Queue(task);
    task.Wait();
    outcome->GetValue();
    std::puts(ran ? "the task ran" : "the task did not run");
    return ran ? 0 : 1;
}
