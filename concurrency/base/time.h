// Time points and durations at the library's interface: 100 ns ticks of the system clock.
//
// Units: ticks of 100 ns, counted from 1970-01-01 00:00 UTC. The standard libraries disagree on the period of
//     std::chrono::system_clock (1 ns or 100 ns), so no signature uses its own time_point.
#pragma once

#include <chrono>
#include <cstdint>
#include <ratio>

namespace Orvane {

// A span of time in ticks of 100 ns.
using Duration = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

// A moment of the system clock in such ticks.
using TimePoint = std::chrono::time_point<std::chrono::system_clock, Duration>;

}  // namespace Orvane
