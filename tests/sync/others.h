// How a mutex looks to threads that do not own it.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>

namespace Zarvo::Test {

// Runs `body` on a thread of its own, to its end.
inline void OnAnotherThread(const std::function<void()>& body) {
    std::thread(body).join();
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

// The shortest of some measurements: what something takes when the machine does nothing else for once.
template <typename Measure>
std::chrono::nanoseconds Fastest(Measure measure) {
    auto fastest = std::chrono::nanoseconds::max();
    for (int i = 0; i < 10; ++i) {
        fastest = std::min(fastest, measure());
    }
    return fastest;
}

}  // namespace Zarvo::Test
