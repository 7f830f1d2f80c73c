#include <iostream>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"

int main() {
    const Orvane::ConcurrencyLifetime lifetime;
    auto nap = Orvane::Run(L"Nap", [] { Orvane::CancellableSleep(3'600'000); });
    auto sum = Orvane::Run(L"Sum", [](int a, int b) { return a + b; }, 40, 2);
    nap.Cancel();
    std::cout << "The sum is " << sum.Get() << ", and the nap of an hour is cut short.\n";
}
