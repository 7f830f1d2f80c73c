#include "concurrency/cancellation/cancellation_object.h"

#include <atomic>
#include <utility>

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

CancellationObject::CancellationObject() : m_threadId(::GetCurrentThreadId()) {}

CancellationObject::~CancellationObject() = default;

bool CancellationObject::IsRequested() {
    const RankedLock lock(m_mutex);
    return std::atomic_ref(m_requested).load();
}

bool CancellationObject::GetKillable() {
    const RankedLock lock(m_mutex);
    return m_killable;
}

void CancellationObject::SetKillable(bool killable) {
    const RankedLock lock(m_mutex);
    m_killable = killable;
}

DWORD CancellationObject::GetThreadId() {
    return m_threadId;
}

void CancellationObject::RegisterNotifier(std::weak_ptr<AbstractCancelNotifier> notifier) {
    const RankedLock lock(m_mutex);
    m_notifier.swap(notifier);
}

std::weak_ptr<AbstractCancelNotifier> CancellationObject::ExchangeNotifier(
    std::weak_ptr<AbstractCancelNotifier> notifier) {
    const RankedLock lock(m_mutex);
    m_notifier.swap(notifier);
    return notifier;
}

void CancellationObject::RestoreNotifier(std::weak_ptr<AbstractCancelNotifier> notifier) {
    std::unique_lock<std::recursive_mutex> lock(m_mutex);
    m_notifier.swap(notifier);
    const std::shared_ptr<AbstractCancelNotifier> restored = m_notifier.lock();
    if (restored && std::atomic_ref(m_requested).load()) {
        restored->Notify(lock, m_requested);
    }
}

void CancellationObject::RequestCancel() {
    // On purpose not a RankedLock: a notifier expects the standard lock.
    std::unique_lock<std::recursive_mutex> lock(m_mutex);
    const std::shared_ptr<AbstractCancelNotifier> notifier = m_notifier.lock();
    // Flag and notifier under one hold: a waiter registers first and tests the flag second, so either it sees the
    // flag or this request sees its notifier.
    std::atomic_ref(m_requested).store(true);
    if (notifier) {
        notifier->Notify(lock, m_requested);
    }
}

}  // namespace Orvane::Internal
