// How many jobs of a group may run: a job that runs holds a slot, and there are as many as the bound allows. A job gives its
// slot back while it waits for another job of the group, and the job that has waited longest gets it. Before it goes on it takes
// one again, ahead of the jobs that wait.
//
// Threads: guarded by the group.
#pragma once

#include <cstddef>

#include "concurrency/jobs/job_wait.h"

namespace Orvane::Internal {

class GroupSlots {
  public:
    explicit GroupSlots(std::size_t bound) noexcept : m_bound(bound) {}

    // For a job that wants its slot again.
    bool IsOneFree() const noexcept { return m_used < m_bound; }

    // For another job, when `ahead` others are to have one first.
    bool IsOneFreeBehind(std::size_t ahead) const noexcept { return m_used + m_retakers + ahead < m_bound; }

    void Take() noexcept { ++m_used; }
    void Free() noexcept {
        --m_used;
        SignalAll(m_waiters);
    }

    // From here to the other, a job wants its slot again. Its listener is signalled for each slot that becomes free.
    void BeginToRetake(JobListener& listener) noexcept {
        ++m_retakers;
        m_waiters.PushBack(listener);
    }
    void EndToRetake(JobListener& listener) noexcept {
        listener.Unlink();
        --m_retakers;
    }

  private:
    const std::size_t m_bound;
    std::size_t m_used = 0;  // or reserved
    std::size_t m_retakers = 0;
    JobListeners m_waiters;
};

}  // namespace Orvane::Internal
