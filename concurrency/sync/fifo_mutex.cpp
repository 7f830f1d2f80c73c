#include "concurrency/sync/fifo_mutex.h"

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/sync/fifo_mutex_line.h"

namespace Orvane {

fifo_mutex::fifo_mutex() : m_line(std::make_shared<Line>()) {}

fifo_mutex::~fifo_mutex() = default;

// Cancellation becomes an exception only in the two functions that the caller calls: caught on the way, in order to
// leave the line, or thrown through more frames, it would cost as much as all the rest of leaving.

void fifo_mutex::lock() {
    if (m_line->LockUntil(nullptr) == Line::Place::Cancelled) {
        throw CancelRequestedException();
    }
}

bool fifo_mutex::try_lock_until(const TimePoint& deadline) {
    const Line::Place place = m_line->LockUntil(&deadline);
    if (place == Line::Place::Cancelled) {
        throw CancelRequestedException();
    }
    return place == Line::Place::Owner;
}

bool fifo_mutex::try_lock() {
    return m_line->TryLock();
}

void fifo_mutex::unlock() {
    m_line->Unlock();
}

}  // namespace Orvane
