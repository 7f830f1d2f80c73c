// Ends two scopes as they must be ended, or in the wrong order, or on another thread.
#include <chrono>
#include <optional>
#include <string>

#include "concurrency/jobs/job.h"
#include "concurrency/jobs/within.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/thread.h"

int main(int count, char** values) {
    using namespace std::chrono_literals;
    const std::string scene = count > 1 ? values[1] : "";
    const Orvane::ConcurrencyLifetime lifetime;
    Orvane::Run(L"Import", [&scene] {
        std::optional<Orvane::Within> outer(1h);
        std::optional<Orvane::CleanUpScope> inner(1h);
        if (scene == "scope-order") {
            outer.reset();
        } else if (scene == "scope-thread") {
            Zarvo::Test::Thread([&inner] { inner.reset(); }).join();
        }
        inner.reset();
        outer.reset();
    }).Get();
    return 0;
}
