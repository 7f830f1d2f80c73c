// The line of a fifo_mutex: its owner and those who wait.
//
// What happens without waiting is here, to be compiled into the mutex as a whole; waiting is in the source.
//
// Threads: any. Errors: std::system_error if the guard fails; std::bad_alloc or std::length_error if the line cannot grow.
// Lifetime: owned through std::shared_ptr: by the mutex, and by whoever still wakes waiters when the mutex is gone.
#pragma once

#include <condition_variable>
#include <iterator>
#include <list>
#include <memory>
#include <mutex>

#include "concurrency/base/guarded.h"
#include "concurrency/base/time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/sync/fifo_mutex.h"

namespace Orvane {

class fifo_mutex::Line : public std::enable_shared_from_this<Line> {
  public:
    enum class Place { Waiting, Owner, TimedOut, Cancelled };

    bool TryLock() {
        const Internal::Guard lock(m_guard);
        return TakeIfFree(::GetCurrentThreadId());
    }

    // Null `deadline`: without limit. Never leaves the caller waiting.
    Place LockUntil(const TimePoint* deadline) {
        Lock lock(m_guard);
        const DWORD self = ::GetCurrentThreadId();
        return TakeIfFree(self) ? Place::Owner : WaitForTurn(lock, self, deadline);
    }

    void Unlock() {
        std::shared_ptr<Line> self;  // the next owner may destroy the mutex before the others are woken
        {
            const Internal::Guard lock(m_guard);
            LeaveOneLevel();
            if (m_entries.empty()) {
                return;
            }
            self = shared_from_this();
        }
        self->m_wake.notify_all();
    }

  private:
    using Entries = std::list<DWORD>;
    using GuardMutex = Internal::RankedMutex<std::recursive_mutex, Internal::LockRank::Waiter>;
    using Lock = Internal::Guard<GuardMutex>;

    bool TakeIfFree(DWORD self) ORVANE_REQUIRES(m_guard) {
        if (!m_entries.empty() && m_entries.back() != self) {
            return false;
        }
        Enter(m_entries.end(), self);
        return true;
    }

    Entries::iterator Enter(Entries::iterator before, DWORD self) ORVANE_REQUIRES(m_guard) {
        if (m_spare.empty()) {
            return m_entries.insert(before, self);
        }
        const auto entry = m_spare.begin();
        *entry = self;
        m_entries.splice(before, m_spare, entry);
        return entry;
    }

    void LeaveOneLevel() ORVANE_REQUIRES(m_guard) {
        const auto owner = std::prev(m_entries.end());
        if (m_spare.empty()) {
            m_spare.splice(m_spare.end(), m_entries, owner);
        } else {
            m_entries.erase(owner);
        }
    }

    Place WaitForTurn(Lock& lock, DWORD self, const TimePoint* deadline) ORVANE_REQUIRES(m_guard);
    Place WaitOnce(Lock& lock, const TimePoint* deadline) ORVANE_REQUIRES(m_guard);
    bool Sleep(Lock& lock, const TimePoint* deadline) ORVANE_REQUIRES(m_guard) ORVANE_NO_THREAD_SAFETY_ANALYSIS;

    GuardMutex m_guard;  // held briefly, never while the caller owns the mutex
    std::condition_variable_any m_wake;  // with m_guard: an owner has left

    // Thread ids. Back: the owner, one entry per level. Front: the newest waiter. Empty: free.
    Entries m_entries ORVANE_GUARDED_BY(m_guard);

    // One entry that is not in use, so that an uncontended lock allocates nothing.
    Entries m_spare ORVANE_GUARDED_BY(m_guard);
};

}  // namespace Orvane
