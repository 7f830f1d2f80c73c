// The time that a thread lives in, if it is not the real one: tests of users run jobs in virtual time (jobs/testing.h). The waits
// of the library that know it block there instead.
//
// Threads: ThreadTime::OfThisThread() is about the calling thread.
#pragma once

#include <functional>

#include "concurrency/base/clock.h"

namespace Orvane::Internal {

class ThreadTime {
  public:
    ThreadTime(const ThreadTime&) = delete;
    ThreadTime& operator=(const ThreadTime&) = delete;

    // Null for the real time. One look at a number while no thread lives in another.
    static ThreadTime* OfThisThread() noexcept;

    virtual MonotonicClock::time_point Now() = 0;

    // Returns when `isReady` says true, or at `deadline`. Others call it meanwhile, on their threads.
    virtual void Block(const std::function<bool()>& isReady, MonotonicClock::time_point deadline) = 0;

    // For a scope of the calling thread.
    class Scope {
      public:
        explicit Scope(ThreadTime& time);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

      private:
        ThreadTime* const m_before;
    };

  protected:
    ThreadTime() = default;
    virtual ~ThreadTime() = default;
};

// The time of the calling thread.
MonotonicClock::time_point ThreadNow();

}  // namespace Orvane::Internal
