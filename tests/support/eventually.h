// The watchdog of every test that waits for another thread.
#pragma once

#include <chrono>

#include "tests/support/stopwatch.h"

namespace Zarvo::Test {

// How long a test waits for what must happen. Generous: machines are slow, and a test that passes never waits it out.
inline constexpr std::chrono::seconds kPatience{30};

// Gives the processor to other threads for about a millisecond.
void PauseBriefly();

// Asks `predicate` again and again until it holds; false if it still does not when `timeout` has passed. It is asked at
// least twice, first and last.
template <typename Predicate>
[[nodiscard]] bool Eventually(Predicate predicate, std::chrono::nanoseconds timeout = kPatience) {
    const Stopwatch stopwatch;
    while (!predicate()) {
        if (stopwatch.Elapsed() >= timeout) {
            return static_cast<bool>(predicate());
        }
        PauseBriefly();
    }
    return true;
}

}  // namespace Zarvo::Test
