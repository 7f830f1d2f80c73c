// The least that a mutex can be which serves in order of arrival: whoever comes draws a number and sleeps until it is
// called. No owner, no recursion, no cancellation, no way out of the line: the floor to measure fifo_mutex against.
//
// Threads: any. unlock() on the one that has locked; this is not checked.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace Zarvo::Bench {

class TicketLock {
  public:
    void lock() {
        std::unique_lock guard(m_guard);
        const std::uint64_t ticket = m_next++;
        m_called.wait(guard, [this, ticket] { return m_serving == ticket; });
    }

    void unlock() {
        {
            const std::lock_guard guard(m_guard);
            ++m_serving;
        }
        m_called.notify_all();
    }

  private:
    std::mutex m_guard;
    std::condition_variable m_called;
    std::uint64_t m_next = 0;     // guarded by m_guard
    std::uint64_t m_serving = 0;  // guarded by m_guard
};

}  // namespace Zarvo::Bench
