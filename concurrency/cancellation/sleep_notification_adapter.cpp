#include "concurrency/cancellation/sleep_notification_adapter.h"

#include <algorithm>
#include <atomic>
#include <chrono>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/wait_protocol.h"

namespace Orvane::Internal {

namespace {

constexpr std::chrono::milliseconds kLongestSleep{864'000'000};  // ten days

}  // namespace

std::shared_ptr<AbstractCancelNotifier> SleepNotificationAdapter::CreateInstance() {
    return RegisterWithCurrentRun(std::shared_ptr<AbstractCancelNotifier>(new SleepNotificationAdapter()));
}

SleepNotificationAdapter::SleepNotificationAdapter() = default;

SleepNotificationAdapter::~SleepNotificationAdapter() = default;

void SleepNotificationAdapter::Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) {
    lock.unlock();
    // Under the sleeper's mutex: it tests the flag and begins to wait under one hold, so this broadcast cannot fall
    // between the two.
    const RankedLock own(m_mutex);
    std::atomic_ref(requested).store(true);
    m_condition.notify_all();
}

void SleepNotificationAdapter::Sleep(DWORD milliseconds) {
    if (SleepUnlessCancelled(milliseconds) == WaitResult::Cancelled) {
        ThrowCancelRequested();
    }
}

WaitResult SleepNotificationAdapter::SleepUnlessCancelled(DWORD milliseconds) {
    RankedLock lock(m_mutex);
    return SleepIn(CurrentRun(), lock, milliseconds, WaitKind::Sleep);
}

WaitResult SleepNotificationAdapter::Sleep(const WaitingRun& run, DWORD milliseconds, WaitKind kind) {
    const auto adapter = run.Register(std::shared_ptr<SleepNotificationAdapter>(new SleepNotificationAdapter()));
    RankedLock lock(adapter->m_mutex);
    return adapter->SleepIn(run, lock, milliseconds, kind);
}

// The flag is tested and the sleep begins in one hold of the mutex.
WaitResult SleepNotificationAdapter::SleepIn(const WaitingRun& run, Lock& lock, DWORD milliseconds, WaitKind kind) {
    return run.WaitUnlessCancelled(kind, nullptr, [&]() ORVANE_NO_THREAD_SAFETY_ANALYSIS {
        if (milliseconds == INFINITE) {
            m_condition.wait(lock);
        } else if (milliseconds == 0) {
            lock.unlock();  // a wait of no time, without the platform's detour
            lock.lock();
        } else {
            m_condition.wait_for(lock, std::min(std::chrono::milliseconds(milliseconds), kLongestSleep));
        }
        return true;
    });
}

}  // namespace Orvane::Internal
