// The library's own clocks. Both are standard Clock types.
//
// Neither std::chrono clock will do: in one supported standard library steady_clock is the system clock, so a step of
// the wall clock would stretch or cut every time-out measured with it.
//
// Threads: any. Errors: none.
#pragma once

#include <chrono>
#include <cstdint>

#include "concurrency/base/time.h"

namespace Orvane::Internal {

// The wall clock in the ticks of the interface. May step.
struct WallClock {
    using duration = Duration;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = TimePoint;
    static constexpr bool is_steady = false;

    static time_point now() noexcept;
};

// Time since some moment before the process started. Never steps back.
struct MonotonicClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<MonotonicClock>;
    static constexpr bool is_steady = true;

    static time_point now() noexcept;
};

// Milliseconds since the system started, in steps of some 16. Reading it costs a thirtieth of what the clock above costs.
struct CoarseClock {
    static std::uint64_t Ticks() noexcept;
};

}  // namespace Orvane::Internal
