#include <iostream>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"

int main() {
    const Orvane::ConcurrencyLifetime lifetime;
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> outcome;
    auto nap = Orvane::MakeTask(L"Nap", [] { Orvane::CancellableSleep(3'600'000); }, outcome);
    Orvane::Internal::GlobalThreadPool::Queue(nap);
    nap.Cancel();
    try {
        outcome->GetValue();
    } catch (const Orvane::CancelledException&) {
        std::cout << "The nap was cancelled.\n";
    }
}
