// A recursive mutex whose lock() looks a few times before it sleeps: for what is wanted by many and hardly ever held longer
// than it takes to move a list node. Putting a thread to sleep and waking it costs some twenty times as much.
//
// Threads, Recursion, Errors: as RecursiveMutex's.
#pragma once

#include "concurrency/base/mutex.h"
#include "concurrency/base/pause.h"

namespace Orvane::Internal {

class AdaptiveMutex : public RecursiveMutex {
  public:
    void lock() {
        for (int i = 0; i < kLooks; ++i) {
            if (try_lock()) {
                return;
            }
            Pause();
        }
        RecursiveMutex::lock();
    }

  private:
    static constexpr int kLooks = 12;
};

}  // namespace Orvane::Internal
