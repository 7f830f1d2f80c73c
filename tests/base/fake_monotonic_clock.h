// The library's monotonic clock in the hands of a test, for the threads that ask for it: there it stands still until the
// test moves it. All others, the test's own stopwatch among them, see the platform's.
//
// Threads: any; construct it before those that use it.
// Lifetime: one at a time.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

class FakeMonotonicClock {
  public:
    FakeMonotonicClock() {
        s_platform = m_patch.Original<ReadCounter>();
        s_reads = 0;
    }
    FakeMonotonicClock(const FakeMonotonicClock&) = delete;
    FakeMonotonicClock& operator=(const FakeMonotonicClock&) = delete;

    // From now on, for good.
    static void UseOnThisThread() { s_isUsed = true; }

    void Advance(std::chrono::nanoseconds by) { s_now += by.count(); }

    // How often the threads that use it have read it.
    long Reads() const { return s_reads; }

  private:
    using ReadCounter = BOOL WINAPI(LARGE_INTEGER*);

    static BOOL WINAPI Read(LARGE_INTEGER* counter) {
        if (!s_isUsed) {
            return s_platform.load()(counter);
        }
        constexpr std::int64_t kSecond = 1'000'000'000;
        LARGE_INTEGER frequency;
        QueryPerformanceFrequency(&frequency);
        const std::int64_t now = s_now;
        counter->QuadPart = now / kSecond * frequency.QuadPart + now % kSecond * frequency.QuadPart / kSecond;
        ++s_reads;
        return TRUE;
    }

    static inline std::atomic<ReadCounter*> s_platform = nullptr;
    static inline std::atomic<std::int64_t> s_now = 0;
    static inline std::atomic<long> s_reads = 0;
    static inline thread_local bool s_isUsed = false;

    const ImportPatch m_patch{LibraryUnderTest(), "QueryPerformanceCounter", &Read};
};

}  // namespace Zarvo::Test
