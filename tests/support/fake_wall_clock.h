// The library's wall clock in the hands of a test. Until something else is asked for it goes with the system's.
//
// The scheduler does not hear of a step: it looks at the clock again when its wait is over, or when something is
// inserted, see WakeScheduler().
//
// Threads: any.
// Lifetime: one at a time.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "concurrency/base/time.h"
#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

class FakeWallClock {
  public:
    FakeWallClock() {
        s_system = m_patch.Original<ReadTime>();
        s_reads = 0;
    }
    explicit FakeWallClock(Orvane::TimePoint moment) : FakeWallClock() { Set(moment); }
    ~FakeWallClock() {
        s_stands = false;
        s_moment = kNever;
        s_ahead = 0;
    }
    FakeWallClock(const FakeWallClock&) = delete;
    FakeWallClock& operator=(const FakeWallClock&) = delete;

    // Stands still at `moment` from now on. From 1601 on.
    void Set(Orvane::TimePoint moment) {
        s_moment = moment.time_since_epoch().count();
        s_stands = true;
    }

    // Goes with the system's clock up to `moment` and stands still there.
    void StopAt(Orvane::TimePoint moment) { s_moment = moment.time_since_epoch().count(); }

    // Runs ahead of the system's by so much more.
    void Advance(Orvane::Duration by) { s_ahead += by.count(); }

    // How often the library has read it: whoever waits for a time and spins reads it all the while.
    long Reads() const { return s_reads; }

  private:
    using ReadTime = void WINAPI(FILETIME*);

    static constexpr std::int64_t kNever = Orvane::TimePoint::max().time_since_epoch().count();

    static void WINAPI Read(FILETIME* time) {
        constexpr std::uint64_t kTicksFrom1601To1970 = 116'444'736'000'000'000;
        ++s_reads;
        s_system.load()(time);
        const std::uint64_t system = ((static_cast<std::uint64_t>(time->dwHighDateTime) << 32U) | time->dwLowDateTime) +
                                     static_cast<std::uint64_t>(s_ahead.load());
        const std::uint64_t moment = static_cast<std::uint64_t>(s_moment.load()) + kTicksFrom1601To1970;
        const std::uint64_t ticks = s_stands ? moment : std::min(moment, system);
        time->dwHighDateTime = static_cast<DWORD>(ticks >> 32U);
        time->dwLowDateTime = static_cast<DWORD>(ticks);
    }

    static inline std::atomic<ReadTime*> s_system = nullptr;
    static inline std::atomic<std::int64_t> s_moment = kNever;
    static inline std::atomic<std::int64_t> s_ahead = 0;
    static inline std::atomic<bool> s_stands = false;
    static inline std::atomic<long> s_reads = 0;

    const ImportPatch m_patch{LibraryUnderTest(), "GetSystemTimePreciseAsFileTime", &Read};
};

}  // namespace Zarvo::Test
