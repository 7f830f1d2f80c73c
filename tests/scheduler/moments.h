// Points in time and spans of it for the scheduler's tests.
#pragma once

#include <chrono>

#include "concurrency/base/time.h"
#include "concurrency/base/win32.h"

namespace Zarvo::Test {

inline Orvane::TimePoint Now() {
    return std::chrono::time_point_cast<Orvane::Duration>(std::chrono::system_clock::now());
}

inline constexpr Orvane::TimePoint k1970{};
inline constexpr Orvane::Duration kOnce{};
inline constexpr Orvane::Duration kTick{1};
inline constexpr DWORD kForever = 0xFFFFFFFF;  // as a time-out

}  // namespace Zarvo::Test
