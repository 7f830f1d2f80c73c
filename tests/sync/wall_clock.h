// The wall clock: read as the library reads it, and set forward for the library alone.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "concurrency/base/time.h"
#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

inline Orvane::TimePoint WallClockNow() {
    constexpr std::int64_t kTicksFrom1601To1970 = 116'444'736'000'000'000;
    FILETIME now;
    ::GetSystemTimePreciseAsFileTime(&now);
    const std::uint64_t ticks = (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return Orvane::TimePoint(Orvane::Duration(static_cast<std::int64_t>(ticks) - kTicksFrom1601To1970));
}

// While it lives, the library's wall clock runs ahead by what Advance() was given.
//
// Threads: any. Lifetime: one at a time.
class ShiftedWallClock {
  public:
    ShiftedWallClock() { s_ahead = 0; }
    ShiftedWallClock(const ShiftedWallClock&) = delete;
    ShiftedWallClock& operator=(const ShiftedWallClock&) = delete;

    void Advance(Orvane::Duration by) { s_ahead += by.count(); }

  private:
    static void WINAPI ReadClock(FILETIME* time) {
        ::GetSystemTimePreciseAsFileTime(time);
        const std::uint64_t ticks = ((static_cast<std::uint64_t>(time->dwHighDateTime) << 32) | time->dwLowDateTime) +
                                    static_cast<std::uint64_t>(s_ahead.load());
        time->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
        time->dwLowDateTime = static_cast<DWORD>(ticks);
    }

    static inline std::atomic<std::int64_t> s_ahead = 0;

    const ImportPatch m_patch{LibraryUnderTest(), "GetSystemTimePreciseAsFileTime", &ReadClock};
};

}  // namespace Zarvo::Test
