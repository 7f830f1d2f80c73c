// Drops the last copy of a Tracker inside the run of its own task.
#include <chrono>
#include <cstdio>
#include <memory>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/schedule.h"
#include "tests/support/gate.h"

int main() {
    using namespace std::chrono_literals;
    const Orvane::ConcurrencyLifetime lifetime;
    std::unique_ptr<Orvane::Tracker> tracker;
    Zarvo::Test::Gate set;
    Zarvo::Test::Gate never;
    tracker = std::make_unique<Orvane::Tracker>(Orvane::Schedule(L"Own", 0s, 0s, [&] {
        set.Wait();
        std::puts("dropping");
        std::fflush(stdout);
        tracker.reset();
        std::puts("survived");
        std::fflush(stdout);
    }));
    set.Open();
    never.Wait();
}
