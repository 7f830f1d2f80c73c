// The clock that everything here is measured with: the platform's performance counter, as a standard Clock type.
//
// Not std::chrono::steady_clock: in one supported standard library it is the wall clock, which may step.
//
// Units: nanoseconds; the counter itself may tick coarser (100 ns on current systems).
#pragma once

#include <chrono>
#include <cstdint>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Bench {

struct CounterClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<CounterClock>;
    static constexpr bool is_steady = true;

    static time_point now() noexcept {
        static const std::int64_t frequency = [] {
            LARGE_INTEGER ticksPerSecond;
            QueryPerformanceFrequency(&ticksPerSecond);
            return ticksPerSecond.QuadPart;
        }();
        LARGE_INTEGER counter;
        QueryPerformanceCounter(&counter);
        const std::int64_t seconds = counter.QuadPart / frequency;
        const std::int64_t rest = counter.QuadPart % frequency;
        return time_point(std::chrono::seconds(seconds) + duration(rest * 1'000'000'000 / frequency));
    }
};

inline double Microseconds(CounterClock::duration time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

// What one of `count` calls takes, in nanoseconds.
template <typename Callable>
double NanosecondsPerCall(std::size_t count, Callable&& callable) {
    const auto start = CounterClock::now();
    for (std::size_t i = 0; i < count; ++i) {
        callable();
    }
    return static_cast<double>((CounterClock::now() - start).count()) / static_cast<double>(count);
}

}  // namespace Zarvo::Bench
