#include "concurrency/sync/checked_mutex.h"

#include <chrono>

#include "concurrency/base/clock.h"
#include "concurrency/base/report.h"
#include "concurrency/base/wait.h"
#include "concurrency/cancellation/wait_protocol.h"

namespace Orvane {

namespace {

constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kHeld = 0xFFFFFFFF;

// A wait that takes longer looks like a deadlock.
constexpr std::chrono::seconds kSuspiciousWait{3};

// The end of time, if that comes first.
Internal::MonotonicClock::time_point WhenSuspicious() {
    using Moment = Internal::MonotonicClock::time_point;
    const Moment now = Internal::MonotonicClock::now();
    return now > (Moment::max)() - kSuspiciousWait ? (Moment::max)() : now + kSuspiciousWait;
}

}  // namespace

// A waiter counts itself, then looks at the word; unlock() frees the word, then looks at the count. Both are sequentially
// consistent, so that one of the two sees the other.

bool checked_mutex::TimedMutex::TryTake() {
    std::uint32_t word = kFree;
    return held.compare_exchange_strong(word, kHeld);
}

void checked_mutex::TimedMutex::Take() {
    Internal::RankedLock lock(mutex);
    ++waiters;
    condition.wait(lock, [this] { return TryTake(); });
    --waiters;
}

template <typename Clock>
bool checked_mutex::TimedMutex::TakeUntil(const typename Clock::time_point& deadline) {
    Internal::RankedLock lock(mutex);
    ++waiters;
    const bool taken = Internal::WaitUntil<Clock>(condition, lock, deadline, [this] { return TryTake(); });
    --waiters;
    return taken;
}

void checked_mutex::TimedMutex::GiveBack() {
    held = kFree;
    if (waiters != 0) {
        {
            // After this, each waiter that was counted has seen the free word, or sleeps.
            const Internal::RankedLock lock(mutex);
        }
        condition.notify_one();
    }
}

checked_mutex::checked_mutex() = default;

checked_mutex::~checked_mutex() {
    if (m_locked) {
        Internal::ReportNoThrow(4, 16, L"checked_mutex::~checked_mutex", L"Attempt to destroy locked mutex");
    }
}

void checked_mutex::lock() {
    if (!m_lock.TryTake()) {
        const Internal::WaitingRun run = Internal::CurrentRun();
        const Internal::WaitingRun::Note note(run, Internal::WaitKind::CheckedMutex, this);
        if (!m_lock.TakeUntil<Internal::MonotonicClock>(WhenSuspicious())) {
            g_OrvaneLogging.Report(4, 16, L"checked_mutex::lock", L"Failed to lock mutex within %d seconds",
                                   static_cast<int>(kSuspiciousWait.count()));
            m_lock.Take();
        }
    }
    m_locked.store(true, std::memory_order_relaxed);
}

bool checked_mutex::try_lock() {
    const bool taken = m_lock.TryTake();
    m_locked.store(taken, std::memory_order_relaxed);
    return taken;
}

bool checked_mutex::timed_lock(const TimePoint& deadline) {
    bool taken = m_lock.TryTake();
    if (!taken) {
        const Internal::WaitingRun run = Internal::CurrentRun();
        const Internal::WaitingRun::Note note(run, Internal::WaitKind::CheckedMutex, this);
        taken = m_lock.TakeUntil<Internal::WallClock>(deadline);
    }
    m_locked.store(taken, std::memory_order_relaxed);
    return taken;
}

void checked_mutex::unlock() {
    m_lock.GiveBack();
    m_locked.store(false, std::memory_order_relaxed);
}

}  // namespace Orvane
