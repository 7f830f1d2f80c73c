#pragma once

#include <memory>
#include <mutex>

#include "concurrency/base/export.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/win32.h"
#include "concurrency/cancellation/abstract_cancel_notifier.h"

namespace Orvane::Internal {

struct CancellationObjectPeer;

// The cancellation record of one run of a task: whether cancellation was requested, and whom to wake when it is.
//
// Cancel a task through Task::Cancel(), never through RequestCancel() here: the future would not know of it. A run that then
// leaves by CancelRequestedException stays busy for ever, and so does each thread that waits for it.
//
// Threads: any thread may ask and request. The constructing thread is the one that runs the task.
// Cancellation: no cancellation points.
// Errors: std::system_error if the mutex fails; RequestCancel() passes on what the notifier throws.
// Memory: everything before RequestCancel() is visible once IsRequested() has returned true.
// Lifetime: shared; the run's future holds it from start to end. It holds its notifier weakly.
class ORVANE_CONCURRENCY_API CancellationObject {
  public:
    // The record of a run that begins on this thread.
    CancellationObject();
    ~CancellationObject();
    CancellationObject(const CancellationObject&) = delete;
    CancellationObject& operator=(const CancellationObject&) = delete;

    // Whether the run was asked to leave.
    bool IsRequested();

    // Whether the task has declared that its thread may be killed if it does not respond.
    bool GetKillable();
    void SetKillable(bool killable);

    // The Win32 id of the constructing thread.
    DWORD GetThreadId();

    // Replaces the notifier: there is one slot, not a list.
    void RegisterNotifier(std::weak_ptr<AbstractCancelNotifier> notifier);

    // The same for a wait that puts the notifier before it back: exchange, wait, restore. If a request has come meanwhile,
    // the restored notifier is notified, on this thread.
    std::weak_ptr<AbstractCancelNotifier> ExchangeNotifier(std::weak_ptr<AbstractCancelNotifier> notifier);
    void RestoreNotifier(std::weak_ptr<AbstractCancelNotifier> notifier) ORVANE_NO_THREAD_SAFETY_ANALYSIS;

    // Sets the flag for good and notifies the registered notifier if it is still alive. Repeatable.
    void RequestCancel() ORVANE_NO_THREAD_SAFETY_ANALYSIS;

  private:
    friend struct CancellationObjectPeer;  // of the tests

    RankedMutex<std::recursive_mutex, LockRank::CancellationObject> m_mutex;
    std::weak_ptr<AbstractCancelNotifier> m_notifier ORVANE_GUARDED_BY(m_mutex);
    bool m_requested = false;  // written under m_mutex or by a notifier under its waiter's: access through atomic_ref
    bool m_killable ORVANE_GUARDED_BY(m_mutex) = false;
    const DWORD m_threadId;
};

}  // namespace Orvane::Internal
