// The same work for each item of a range: its runners, its bound, its first failure and a request.

#include <atomic>
#include <stdexcept>
#include <vector>

#include "concurrency/jobs/parallel.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Schedules::Check;
using Schedules::TaskParty;

}  // namespace

SCENARIO(MapKeepsToItsBound, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::atomic<int> inside = 0;
    const std::vector<int> items = {1, 2, 3};
    const std::vector<int> doubled = Orvane::Map(
        L"Double", items,
        [&inside](int item) {
            Check(++inside <= 2, "two at a time");
            --inside;
            return item * 2;
        },
        2);
    Check(doubled == std::vector<int>({2, 4, 6}), "the result of each item, in the order of the range");
}

SCENARIO(ForEachTakesEachItemOnce, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::vector<std::atomic<int>> calls(3);
    Orvane::ForEach(L"Count", calls, [](std::atomic<int>& own) { ++own; }, 2);
    for (const auto& own : calls) {
        Check(own == 1, "one call for each item");
    }
}

SCENARIO(ForEachEndsWithItsFirstFailure, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    const std::vector<int> items = {0, 1};
    bool hasThrown = false;
    try {
        Orvane::ForEach(
            L"Fails", items,
            [](int item) {
                if (item == 0) {
                    throw std::runtime_error("first");
                }
                Orvane::CancellableSleep(INFINITE);
            },
            2);
    } catch (const std::runtime_error&) {
        hasThrown = true;
    }
    Check(hasThrown, "the failure comes out, and the other item does not keep it");
}

SCENARIO(ForEachIsCancelledWithItsCaller, {.delays = true}) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::atomic<int> inside = 0;
    TaskParty caller([&inside] {
        const std::vector<int> items = {0, 1};
        Orvane::ForEach(
            L"Sleeps", items,
            [&inside](int) {
                ++inside;
                try {
                    Orvane::CancellableSleep(INFINITE);
                } catch (...) {
                    --inside;
                    throw;
                }
            },
            2);
    });
    caller.Cancel();
    caller.Join();
    Check(caller.Future().IsCancelled() && inside == 0, "the caller was cancelled after its items");
}
