#include "concurrency/sync/checked_mutex.h"

#include <chrono>

#include "concurrency/base/clock.h"
#include "concurrency/base/report.h"
#include "concurrency/base/wait.h"

namespace Orvane {

namespace {

constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kHeld = 0xFFFFFFFF;

// A wait that takes longer looks like a deadlock.
constexpr std::chrono::seconds kSuspiciousWait{3};

}  // namespace

checked_mutex::checked_mutex() = default;

checked_mutex::~checked_mutex() {
    if (m_locked) {
        Internal::ReportNoThrow(4, 16, L"checked_mutex::~checked_mutex", L"Attempt to destroy locked mutex");
    }
}

void checked_mutex::lock() {
    const auto isFree = [this] { return m_lock.held == kFree; };
    {
        std::unique_lock lock(m_lock.mutex);
        if (!isFree()) {
            const auto deadline = Internal::MonotonicClock::now() + kSuspiciousWait;
            if (!Internal::WaitUntil<Internal::MonotonicClock>(m_lock.condition, lock, deadline, isFree)) {
                lock.unlock();
                g_OrvaneLogging.Report(4, 16, L"checked_mutex::lock", L"Failed to lock mutex within %d seconds",
                                       static_cast<int>(kSuspiciousWait.count()));
                lock.lock();
                m_lock.condition.wait(lock, isFree);
            }
        }
        m_lock.held = kHeld;
    }
    m_locked.store(true, std::memory_order_relaxed);
}

bool checked_mutex::try_lock() {
    bool taken = false;
    {
        const std::lock_guard lock(m_lock.mutex);
        if (m_lock.held == kFree) {
            m_lock.held = kHeld;
            taken = true;
        }
    }
    m_locked.store(taken, std::memory_order_relaxed);
    return taken;
}

bool checked_mutex::timed_lock(const TimePoint& deadline) {
    bool taken = false;
    {
        std::unique_lock lock(m_lock.mutex);
        taken = Internal::WaitUntil<Internal::WallClock>(m_lock.condition, lock, deadline,
                                                         [this] { return m_lock.held == kFree; });
        if (taken) {
            m_lock.held = kHeld;
        }
    }
    m_locked.store(taken, std::memory_order_relaxed);
    return taken;
}

void checked_mutex::unlock() {
    {
        const std::lock_guard lock(m_lock.mutex);
        m_lock.held = kFree;
    }
    m_lock.condition.notify_one();
    m_locked.store(false, std::memory_order_relaxed);
}

}  // namespace Orvane
