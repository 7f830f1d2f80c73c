#include "concurrency/sync/fifo_mutex_line.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <stdexcept>

#include "concurrency/base/clock.h"
#include "concurrency/base/wait.h"
#include "concurrency/cancellation/condition_notification_adapter.h"
#include "concurrency/cancellation/current_task.h"

namespace Orvane {

namespace {

// A waiter looks at the line again after this long, woken or not. A waiter that leaves by time-out or cancellation
// wakes nobody, although it may have been the next owner and the one behind it has already looked.
constexpr Duration kLookAgain = std::chrono::milliseconds(100);

}  // namespace

void fifo_mutex::Line::ThrowTooLong() {
    throw std::length_error("list too long");
}

bool fifo_mutex::Line::TryLockInLine(DWORD self) {
    const Internal::RankedLock lock(m_guard);
    std::uint64_t word = kFree;
    if (TakeWord(self, word)) {
        return true;
    }
    return word == kInLine && TakeIfFree(self);
}

fifo_mutex::Line::Place fifo_mutex::Line::LockInLine(DWORD self, const TimePoint* deadline) {
    Lock lock(m_guard);
    return EnterLine(self) || TakeIfFree(self) ? Place::Owner : WaitForTurn(lock, self, deadline);
}

// Puts the list in force. Returns true if the caller has taken the mutex instead, because it had become free.
bool fifo_mutex::Line::EnterLine(DWORD self) {
    std::uint64_t word = kFree;
    Entries owner;
    while (!TakeWord(self, word)) {
        if (word == kInLine) {
            return false;
        }
        // Made before the word changes: without memory for it nothing has happened.
        owner.assign(LevelsOf(word), OwnerOf(word));
        if (m_word.compare_exchange_weak(word, kInLine)) {
            m_entries.swap(owner);
            return false;
        }
    }
    return true;
}

bool fifo_mutex::Line::TakeIfFree(DWORD self) {
    if (!m_entries.empty() && m_entries.back() != self) {
        return false;
    }
    m_entries.push_back(self);
    return true;
}

void fifo_mutex::Line::Leave(Entries::iterator entry) {
    m_entries.erase(entry);
    if (m_entries.empty()) {
        m_word = kFree;
    }
}

void fifo_mutex::Line::UnlockInLine() {
    // The next owner may destroy the mutex before the guard is given back, and before the others are woken.
    const std::shared_ptr<Line> self = shared_from_this();
    {
        const Internal::RankedLock lock(m_guard);
        Leave(std::prev(m_entries.end()));
        if (m_entries.empty()) {
            return;
        }
    }
    m_wake.notify_all();
}

fifo_mutex::Line::Place fifo_mutex::Line::WaitForTurn(Lock& lock, DWORD self, const TimePoint* deadline) {
    m_entries.push_front(self);
    const auto entry = m_entries.begin();
    Place place = Place::Waiting;
    while (place == Place::Waiting) {
        place = m_entries.back() == self ? Place::Owner : WaitOnce(lock, deadline);
    }
    if (place != Place::Owner) {
        // On purpose without another look at the line, and without waking anybody: a time-out is a failure.
        Leave(entry);
    }
    return place;
}

fifo_mutex::Line::Place fifo_mutex::Line::WaitOnce(Lock& lock, const TimePoint* deadline) {
    // Registered before the request is looked for, and looked for and slept under one hold of the guard: no request is
    // missed.
    using Notifier = Internal::ConditionNotificationAdapter<GuardMutex, Internal::Condition>;
    const auto notifier = Notifier::CreateInstance(m_guard, m_wake, shared_from_this());
    if (IsCancellationRequested()) {
        return Place::Cancelled;
    }
    const bool isInTime = Sleep(lock, deadline);
    if (IsCancellationRequested()) {
        return Place::Cancelled;
    }
    return isInTime ? Place::Waiting : Place::TimedOut;
}

// Returns whether the deadline is still ahead.
bool fifo_mutex::Line::Sleep(Lock& lock, const TimePoint* deadline) {
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
}

}  // namespace Orvane
