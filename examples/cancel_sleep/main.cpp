#include <iostream>
#include <thread>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"

int main() {
    const Orvane::ConcurrencyLifetime lifetime;
    const auto sleepForAnHour = [] {
        std::cout << "Sleeping for an hour ...\n";
        Orvane::CancellableSleep(3'600'000);
    };
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> outcome;
    auto task = Orvane::MakeTask(L"Sleep", sleepForAnHour, outcome);
    Orvane::Internal::GlobalThreadPool::Queue(task);
    while (!task.IsBusy()) std::this_thread::yield();
    task.Cancel();
    try {
        outcome->GetValue();
    } catch (const Orvane::CancelledException&) {
        std::cout << "... and woken at once.\n";
    }
}
