// Points in time for the scheduler's tests.
#pragma once

#include <chrono>

#include "concurrency/base/time.h"

namespace Zarvo::Test {

inline Orvane::TimePoint Now() {
    return std::chrono::time_point_cast<Orvane::Duration>(std::chrono::system_clock::now());
}

inline constexpr Orvane::TimePoint k1970{};
inline constexpr Orvane::Duration kOnce{};

}  // namespace Zarvo::Test
