// What waiting for a fifo_mutex costs while nothing happens.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "concurrency/base/time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

std::int64_t Ticks(const FILETIME& time) {
    return static_cast<std::int64_t>((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
}

// What the process has used so far.
Duration ProcessorTime() {
    FILETIME begin;
    FILETIME end;
    FILETIME kernel;
    FILETIME user;
    EXPECT_NE(GetProcessTimes(GetCurrentProcess(), &begin, &end, &kernel, &user), FALSE);
    return Duration(Ticks(kernel) + Ticks(user));
}

// Looking at the queue every tenth of a second, they would use several times as much.
TEST(FifoMutexWaiters, CostHardlyAnyProcessorTimeBehindAnOwner) {
    constexpr std::size_t kCount = 200;
    constexpr std::chrono::seconds kTime = 5s;
    fifo_mutex mutex;
    mutex.lock();
    std::vector<Thread> waiters;
    std::atomic<std::size_t> begun = 0;
    for (std::size_t i = 0; i < kCount; ++i) {
        waiters.emplace_back([&] {
            ++begun;
            mutex.lock();
            mutex.unlock();
        });
    }
    while (begun != kCount) {
        std::this_thread::sleep_for(10ms);
    }
    std::this_thread::sleep_for(1s);
    const Duration before = ProcessorTime();
    std::this_thread::sleep_for(kTime);
    const Duration used = ProcessorTime() - before;
    mutex.unlock();
    const auto perSecond = std::chrono::duration<double, std::milli>(used) / kTime.count();
    RecordProperty("milliseconds_per_second", std::to_string(perSecond.count()));
    std::cout << perSecond.count() << " ms of processor time per second\n";
    EXPECT_LT(perSecond.count(), 10.0);
}

}  // namespace
