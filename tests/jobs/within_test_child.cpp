// Ends scopes in the order, or on the thread, that the argument names.
#include <chrono>
#include <optional>
#include <string>

#include "concurrency/jobs/within.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/thread.h"

int main(int count, char** values) {
    using namespace std::chrono_literals;
    const std::string way = count > 1 ? values[1] : "";
    const Orvane::ConcurrencyLifetime lifetime;
    std::optional<Orvane::Within> outer;
    std::optional<Orvane::CleanUpScope> inner;
    outer.emplace(1h);
    inner.emplace(1h);
    if (way == "order") {
        outer.reset();
    } else if (way == "thread") {
        Zarvo::Test::Thread([&inner] { inner.reset(); }).join();
    }
    inner.reset();
    outer.reset();
    return 0;
}
