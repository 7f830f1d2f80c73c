// Where the tasks of a measured run report that they have run. The last one to arrive takes the time itself, so that
// waking the thread that measures is not part of the figure.
//
// Threads: Arrive() on any, once for each task; WaitForLast() on one.
// Lifetime: may be destroyed as soon as WaitForLast() has returned.
#pragma once

#include <atomic>
#include <cstddef>

#include "bench/harness/counter_clock.h"
#include "bench/harness/event.h"

namespace Zarvo::Bench {

class FinishLine {
  public:
    explicit FinishLine(std::size_t tasks) : m_underWay(tasks) {}

    void Arrive() noexcept {
        if (m_underWay.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            m_end = CounterClock::now();
            m_reached.Set();
        }
    }

    CounterClock::time_point WaitForLast() noexcept {
        m_reached.Wait();
        return m_end;
    }

  private:
    std::atomic<std::size_t> m_underWay;
    CounterClock::time_point m_end;
    Event m_reached;
};

}  // namespace Zarvo::Bench
