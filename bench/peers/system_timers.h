// The system's own timers. Both call `kFunction(argument)` on threads of the system's.
//
// Errors: std::system_error if a timer cannot be made.
// Lifetime: the destructors wait for a call that is under way.
#pragma once

#include <system_error>

#include "bench/harness/wall_time.h"
#include "bench/peers/system_pool.h"
#include "concurrency/base/time.h"
#include "concurrency/base/windows_api.h"

namespace Zarvo::Bench {

// CreateThreadpoolTimer: the first call at a point in time, the others each `period` ms later; 0: no others.
template <PlainFunction kFunction>
class PoolTimer {
  public:
    PoolTimer(void* argument, Orvane::TimePoint first, DWORD period)
        : m_timer(CreateThreadpoolTimer([](PTP_CALLBACK_INSTANCE, void* context, PTP_TIMER) { kFunction(context); },
                                        argument, nullptr)) {
        if (m_timer == nullptr) {
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateThreadpoolTimer");
        }
        FILETIME due = ToFileTime(first);
        SetThreadpoolTimer(m_timer, &due, period, 0);
    }
    ~PoolTimer() {
        SetThreadpoolTimer(m_timer, nullptr, 0, 0);
        WaitForThreadpoolTimerCallbacks(m_timer, TRUE);
        CloseThreadpoolTimer(m_timer);
    }
    PoolTimer(const PoolTimer&) = delete;
    PoolTimer& operator=(const PoolTimer&) = delete;

  private:
    const PTP_TIMER m_timer;
};

// CreateTimerQueueTimer: the first call after `delay` ms, the others each `period` ms later; 0: no others.
template <PlainFunction kFunction>
class QueueTimer {
  public:
    QueueTimer(void* argument, DWORD delay, DWORD period) {
        const WAITORTIMERCALLBACK callback = [](void* context, BOOLEAN) { kFunction(context); };
        if (!CreateTimerQueueTimer(&m_timer, nullptr, callback, argument, delay, period, WT_EXECUTEDEFAULT)) {
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateTimerQueueTimer");
        }
    }
    ~QueueTimer() { DeleteTimerQueueTimer(nullptr, m_timer, INVALID_HANDLE_VALUE); }
    QueueTimer(const QueueTimer&) = delete;
    QueueTimer& operator=(const QueueTimer&) = delete;

  private:
    HANDLE m_timer = nullptr;
};

}  // namespace Zarvo::Bench
