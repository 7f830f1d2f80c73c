// How a mutex looks to threads that do not own it.
#pragma once

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

}  // namespace Zarvo::Test
