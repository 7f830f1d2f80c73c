#include "concurrency/sync/fifo_mutex_line.h"

#include <algorithm>
#include <chrono>

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

fifo_mutex::Line::Place fifo_mutex::Line::WaitForTurn(Lock& lock, DWORD self, const TimePoint* deadline) {
    const auto entry = Enter(m_entries.begin(), self);
    Place place = Place::Waiting;
    while (place == Place::Waiting) {
        place = m_entries.back() == self ? Place::Owner : WaitOnce(lock, deadline);
    }
    if (place != Place::Owner) {
        // On purpose without another look at the line, and without waking anybody: a time-out is a failure.
        m_entries.erase(entry);
    }
    return place;
}

fifo_mutex::Line::Place fifo_mutex::Line::WaitOnce(Lock& lock, const TimePoint* deadline) {
    // Registered before the request is looked for, and looked for and slept under one hold of the guard: no request is
    // missed.
    const auto notifier =
        Internal::ConditionNotificationAdapter<GuardMutex>::CreateInstance(m_guard, m_wake, shared_from_this());
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
