// Work for a processor that takes a given time on it. Counted, not timed, while it runs: a thread that does not run must not get
// its work done meanwhile.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include <benchmark/benchmark.h>

#include "bench/harness/counter_clock.h"

namespace Zarvo::Bench {

inline void Work(std::size_t steps) {
    std::uint32_t value = 1;
    for (std::size_t i = 0; i < steps; ++i) {
        value = value * 1'664'525U + 1'013'904'223U;
        benchmark::DoNotOptimize(value);
    }
}

// How many steps of Work() take the time on an undisturbed processor.
inline std::size_t StepsOf(std::chrono::nanoseconds time) {
    constexpr std::size_t kTrial = 100'000;
    double fastest = NanosecondsPerCall(1, [] { Work(kTrial); });
    for (int i = 0; i < 20; ++i) {
        fastest = std::min(fastest, NanosecondsPerCall(1, [] { Work(kTrial); }));
    }
    return static_cast<std::size_t>(static_cast<double>(time.count()) / fastest * static_cast<double>(kTrial));
}

}  // namespace Zarvo::Bench
