#include "concurrency/sync/fifo_mutex_wait_queue.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <stdexcept>

#include "concurrency/base/clock.h"
#include "concurrency/base/wait.h"
#include "concurrency/cancellation/condition_notification_adapter.h"

namespace Orvane {

using Internal::WaitResult;

namespace {

// How long a waiter sleeps behind a next owner that has not come in. If that one times out or is cancelled, it wakes no
// thread, although the waiter behind it is next now.
constexpr Duration kLookAgain = std::chrono::milliseconds(100);

}  // namespace

void fifo_mutex::WaitQueue::ThrowTooLong() {
    throw std::length_error("list too long");
}

bool fifo_mutex::WaitQueue::TryLockInList(DWORD self) {
    const Internal::RankedLock lock(m_guard);
    std::uint64_t word = kFree;
    if (TakeWord(self, word)) {
        return true;
    }
    return word == kInList && TakeLevelIfOwner(self);
}

WaitResult fifo_mutex::WaitQueue::LockInList(DWORD self, const TimePoint* deadline) {
    Lock lock(m_guard);
    return TakeWordOrMoveIt(self) || TakeLevelIfOwner(self) ? WaitResult::Done : WaitForTurn(lock, self, deadline);
}

// Puts the list in force. Returns true if the caller has taken the mutex instead, because it had become free.
bool fifo_mutex::WaitQueue::TakeWordOrMoveIt(DWORD self) {
    std::uint64_t word = kFree;
    Entries owner;
    while (!TakeWord(self, word)) {
        if (word == kInList) {
            return false;
        }
        // Made before the word changes: without memory for it nothing has happened.
        owner.assign(LevelsOf(word), OwnerOf(word));
        if (m_word.compare_exchange_weak(word, kInList)) {
            m_entries.swap(owner);
            m_ownerHasComeIn = true;
            return false;
        }
    }
    return true;
}

// With the list in force, which then has an owner.
bool fifo_mutex::WaitQueue::TakeLevelIfOwner(DWORD self) {
    if (m_entries.back() != self) {
        return false;
    }
    m_entries.push_back(self);
    m_ownerHasComeIn = true;
    return true;
}

void fifo_mutex::WaitQueue::Remove(Entries::iterator entry) {
    const DWORD owner = m_entries.back();
    m_entries.erase(entry);
    if (m_entries.empty()) {
        m_word = kFree;
    } else if (m_entries.back() != owner) {
        m_ownerHasComeIn = false;
    }
}

void fifo_mutex::WaitQueue::UnlockInList() {
    // The next owner may destroy the mutex before the guard is given back, and before the others are woken.
    const std::shared_ptr<WaitQueue> self = shared_from_this();
    {
        const Internal::RankedLock lock(m_guard);
        Remove(std::prev(m_entries.end()));
        if (m_entries.empty()) {
            return;
        }
    }
    m_wake.notify_all();
}

WaitResult fifo_mutex::WaitQueue::WaitForTurn(Lock& lock, DWORD self, const TimePoint* deadline) {
    m_entries.push_front(self);
    const auto entry = m_entries.begin();
    while (m_entries.back() != self) {
        const WaitResult result = Internal::WaitOnCondition(Internal::WaitKind::FifoMutex, m_mutex, m_guard, m_wake,
                                                            shared_from_this(), [&] { return Sleep(lock, deadline); });
        if (result != WaitResult::Done) {
            // On purpose without another look at the list, and without waking anybody: a time-out is a failure.
            Remove(entry);
            return result;
        }
    }
    m_ownerHasComeIn = true;
    return WaitResult::Done;
}

// One sleep, in the hold of the guard in which the list was looked at. Returns whether the deadline is still ahead.
bool fifo_mutex::WaitQueue::Sleep(Lock& lock, const TimePoint* deadline) {
    if (deadline == nullptr && m_ownerHasComeIn) {
        m_wake.wait(lock);
        return true;
    }
    const Duration longest = m_ownerHasComeIn ? Internal::kLongestSlice : kLookAgain;
    const Duration slice =
        deadline == nullptr ? longest : std::min(Internal::NextSlice<Internal::WallClock>(*deadline), longest);
    if (slice > Duration::zero()) {
        m_wake.wait_for(lock, slice);
    } else {
        lock.unlock();
        lock.lock();
    }
    return deadline == nullptr || *deadline > Internal::WallClock::now();
}

}  // namespace Orvane
