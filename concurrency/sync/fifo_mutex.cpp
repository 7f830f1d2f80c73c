#include "concurrency/sync/fifo_mutex.h"

#include <algorithm>
#include <condition_variable>
#include <iterator>
#include <list>
#include <mutex>
#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/wait.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/condition_notification_adapter.h"

namespace Orvane {

namespace {

// A waiter looks at the line again after this long, woken or not. A waiter that leaves by time-out or cancellation
// wakes nobody, although it may have been the next owner and the one behind it has already looked.
constexpr Duration kLookAgain = std::chrono::milliseconds(100);

}  // namespace

class fifo_mutex::Line : public std::enable_shared_from_this<Line> {
  public:
    bool TryLock();

    // Null `deadline`: without limit. Returns false when it has passed.
    bool LockUntil(const TimePoint* deadline);

    // Returns whether somebody may be waiting.
    bool Unlock();

    void WakeAll() { m_wake.notify_all(); }

  private:
    using Entries = std::list<DWORD>;

    // All of these need the guard.
    bool TakeIfFree(DWORD self);
    Entries MakeEntry(DWORD self);
    bool WaitOnce(std::unique_lock<std::recursive_mutex>& lock, const TimePoint* deadline);

    std::recursive_mutex m_guard;        // held briefly, never while the caller owns the mutex
    std::condition_variable_any m_wake;  // with m_guard: an owner has left

    // Thread ids. Back: the owner, one entry per level. Front: the newest waiter. Empty: free. Guarded by m_guard.
    Entries m_entries;

    // One entry that is not in use, so that an uncontended lock allocates nothing. Guarded by m_guard.
    Entries m_spare;
};

fifo_mutex::fifo_mutex() : m_line(std::make_shared<Line>()) {}

fifo_mutex::~fifo_mutex() = default;

void fifo_mutex::lock() {
    m_line->LockUntil(nullptr);
}

bool fifo_mutex::try_lock() {
    return m_line->TryLock();
}

bool fifo_mutex::try_lock_until(const TimePoint& deadline) {
    return m_line->LockUntil(&deadline);
}

void fifo_mutex::unlock() {
    const auto line = m_line;  // the next owner may destroy the mutex before the others are woken
    if (line->Unlock()) {
        line->WakeAll();
    }
}

bool fifo_mutex::Line::TryLock() {
    const std::lock_guard lock(m_guard);
    return TakeIfFree(::GetCurrentThreadId());
}

bool fifo_mutex::Line::LockUntil(const TimePoint* deadline) {
    std::unique_lock lock(m_guard);
    const DWORD self = ::GetCurrentThreadId();
    if (TakeIfFree(self)) {
        return true;
    }
    m_entries.splice(m_entries.begin(), MakeEntry(self));
    const auto place = m_entries.begin();
    try {
        while (m_entries.back() != self) {
            if (!WaitOnce(lock, deadline)) {
                // On purpose without another look at the line, and without waking anybody: a time-out is a failure.
                m_entries.erase(place);
                return false;
            }
        }
    } catch (const CancelRequestedException&) {
        m_entries.erase(place);
        throw;
    }
    return true;
}

bool fifo_mutex::Line::Unlock() {
    const std::lock_guard lock(m_guard);
    const auto owner = std::prev(m_entries.end());
    if (m_spare.empty()) {
        m_spare.splice(m_spare.end(), m_entries, owner);
    } else {
        m_entries.erase(owner);
    }
    return !m_entries.empty();
}

bool fifo_mutex::Line::TakeIfFree(DWORD self) {
    if (!m_entries.empty() && m_entries.back() != self) {
        return false;
    }
    m_entries.splice(m_entries.end(), MakeEntry(self));
    return true;
}

fifo_mutex::Line::Entries fifo_mutex::Line::MakeEntry(DWORD self) {
    if (m_spare.empty()) {
        return Entries(1, self);
    }
    m_spare.front() = self;
    return std::exchange(m_spare, Entries());
}

bool fifo_mutex::Line::WaitOnce(std::unique_lock<std::recursive_mutex>& lock, const TimePoint* deadline) {
    return Internal::CancellableConditionWait(m_guard, m_wake, shared_from_this(), [&] {
        if (deadline == nullptr) {
            m_wake.wait_for(lock, kLookAgain);
            return true;
        }
        const auto slice = std::min(Internal::NextSlice<Internal::WallClock>(*deadline), kLookAgain);
        if (slice > Duration::zero()) {
            m_wake.wait_for(lock, slice);
        } else {
            lock.unlock();
            lock.lock();
        }
        return *deadline > Internal::WallClock::now();
    });
}

}  // namespace Orvane
