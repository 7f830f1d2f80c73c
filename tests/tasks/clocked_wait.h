// A wait for a run that is being cancelled, on a thread of its own, by a clock that the test moves.
//
// Threads: the members belong to the test's thread.
// Lifetime: the destructor joins the thread, see PlainThread.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "concurrency/tasks/future_state.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_monotonic_clock.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/future_state_peer.h"

namespace Zarvo::Test {

class ClockedWait {
  public:
    // Returns when the wait has its deadline.
    ClockedWait(Orvane::Internal::FutureState& awaited, std::function<void()> wait)
        : m_awaited(awaited), m_thread([wait = std::move(wait)] {
              FakeMonotonicClock::UseOnThisThread();
              wait();
          }) {
        AwaitReads(2);  // one for the deadline, one for the time that is left
    }

    // Moves the clock and wakes the waiter; returns when that sleeps again, or has its answer.
    void Advance(std::chrono::nanoseconds by) {
        long reads = 0;
        {
            const std::lock_guard lock(Mutex());  // the waiter sleeps
            reads = m_clock.Reads();
            m_clock.Advance(by);
            Orvane::Internal::FutureStatePeer::ConditionOf(m_awaited).notify_all();
        }
        AwaitReads(reads + 1);
        const std::lock_guard lock(Mutex());
    }

    bool HasEnded() const { return m_thread.HasEnded(); }

  private:
    std::recursive_mutex& Mutex() { return Orvane::Internal::FutureStatePeer::MutexOf(m_awaited); }

    void AwaitReads(long count) const {
        if (!Eventually([&] { return m_clock.Reads() >= count; })) {
            throw std::runtime_error("ClockedWait: it does not look at the clock");
        }
    }

    Orvane::Internal::FutureState& m_awaited;
    FakeMonotonicClock m_clock;
    PlainThread m_thread;
};

}  // namespace Zarvo::Test
