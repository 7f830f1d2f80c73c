// How a mutex looks to threads that do not own it.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>

#include "tests/support/thread.h"

namespace Zarvo::Test {

// Runs `body` on a thread of its own, to its end.
inline void OnAnotherThread(const std::function<void()>& body) {
    Thread(body).join();
}

// Whether a thread that owns nothing could have taken the mutex now. It is left as it was found.
template <typename Mutex>
bool IsFreeForOthers(Mutex& mutex) {
    bool isFree = false;
    OnAnotherThread([&] {
        isFree = mutex.try_lock();
        if (isFree) {
            mutex.unlock();
        }
    });
    return isFree;
}

// The median of some measurements: what something takes, whatever the machine does besides now and then.
template <typename Measure>
std::chrono::nanoseconds MedianOf(Measure measure) {
    std::array<std::chrono::nanoseconds, 11> times;
    std::generate(times.begin(), times.end(), measure);
    const auto middle = times.begin() + times.size() / 2;
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

}  // namespace Zarvo::Test
