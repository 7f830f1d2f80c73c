#include "concurrency/sync/fifo_mutex.h"

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/sync/fifo_mutex_wait_queue.h"

namespace Orvane {

fifo_mutex::fifo_mutex() : m_queue(std::make_shared<WaitQueue>(this)) {}

fifo_mutex::~fifo_mutex() = default;

void fifo_mutex::lock() {
    if (m_queue->LockUntil(nullptr) == Internal::WaitResult::Cancelled) {
        Internal::ThrowCancelRequested();
    }
}

bool fifo_mutex::try_lock_until(const TimePoint& deadline) {
    const Internal::WaitResult result = m_queue->LockUntil(&deadline);
    if (result == Internal::WaitResult::Cancelled) {
        Internal::ThrowCancelRequested();
    }
    return result == Internal::WaitResult::Done;
}

bool fifo_mutex::try_lock() {
    return m_queue->TryLock();
}

void fifo_mutex::unlock() {
    m_queue->Unlock();
}

}  // namespace Orvane
