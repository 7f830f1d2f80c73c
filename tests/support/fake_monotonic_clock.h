// The library's monotonic clock in the hands of a test: for the threads that ask for it, or for all, it stands still until
// the test moves it. The test's own stopwatch is not concerned.
//
// Threads: any; construct it before those that use it.
// Lifetime: one at a time.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

class FakeMonotonicClock {
  public:
    // For the threads that call UseOnThisThread().
    FakeMonotonicClock() : FakeMonotonicClock(false, {}) {}

    // For all threads.
    explicit FakeMonotonicClock(std::chrono::nanoseconds start) : FakeMonotonicClock(true, start) {}

    FakeMonotonicClock(const FakeMonotonicClock&) = delete;
    FakeMonotonicClock& operator=(const FakeMonotonicClock&) = delete;

    // From now on, for good.
    static void UseOnThisThread() { s_isUsed = true; }

    void Set(std::chrono::nanoseconds moment) { s_now = moment.count(); }
    void Advance(std::chrono::nanoseconds by) { s_now += by.count(); }

    // How often it has been read.
    long Reads() const { return s_reads; }

  private:
    using ReadCounter = BOOL WINAPI(LARGE_INTEGER*);

    FakeMonotonicClock(bool isForAll, std::chrono::nanoseconds start) {
        s_platform = m_patch.Original<ReadCounter>();
        s_now = start.count();
        s_reads = 0;
        s_isForAll = isForAll;
    }

    static BOOL WINAPI Read(LARGE_INTEGER* counter) {
        if (!s_isForAll && !s_isUsed) {
            ReadCounter* platform = nullptr;
            while ((platform = s_platform) == nullptr) {
                std::this_thread::yield();  // patched a moment ago: the constructor is about to say it
            }
            return platform(counter);
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
    static inline std::atomic<bool> s_isForAll = false;
    static inline thread_local bool s_isUsed = false;

    const ImportPatch m_patch{LibraryUnderTest(), "QueryPerformanceCounter", &Read};
};

}  // namespace Zarvo::Test
