// The library's monotonic clock in the hands of a test: it stands still until it is told to go on.
//
// Threads: any. Lifetime: one at a time.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

class FakeMonotonicClock {
  public:
    // Whole ticks of the platform's counter, rounded down.
    explicit FakeMonotonicClock(std::chrono::nanoseconds start) {
        LARGE_INTEGER frequency;
        QueryPerformanceFrequency(&frequency);
        s_frequency = frequency.QuadPart;
        s_reads = 0;
        Set(start);
    }
    FakeMonotonicClock(const FakeMonotonicClock&) = delete;
    FakeMonotonicClock& operator=(const FakeMonotonicClock&) = delete;

    void Set(std::chrono::nanoseconds moment) {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(moment);
        s_counter = seconds.count() * s_frequency + (moment - seconds).count() * s_frequency / 1'000'000'000;
    }

    // How often the library has read it.
    long Reads() const { return s_reads; }

  private:
    static BOOL WINAPI Read(LARGE_INTEGER* counter) {
        ++s_reads;
        counter->QuadPart = s_counter;
        return TRUE;
    }

    static inline std::int64_t s_frequency = 0;
    static inline std::atomic<std::int64_t> s_counter = 0;
    static inline std::atomic<long> s_reads = 0;

    const ImportPatch m_patch{LibraryUnderTest(), "QueryPerformanceCounter", &Read};
};

}  // namespace Zarvo::Test
