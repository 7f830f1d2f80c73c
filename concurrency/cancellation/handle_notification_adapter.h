#pragma once

#include <memory>
#include <mutex>

#include "concurrency/base/export.h"
#include "concurrency/base/win32.h"
#include "concurrency/cancellation/abstract_cancel_notifier.h"

namespace Orvane::Internal {

// Wakes a task out of a handle wait: owns an event that a cancellation request signals.
//
// Threads: CreateInstance() on the task's thread; Notify() on the thread that cancels.
// Cancellation: no cancellation points; the wait on the event is the caller's.
// Errors: std::bad_alloc, std::system_error. A failed event creation is not detected: the handle is null then, and a
//     wait on it fails as the platform decides.
// Memory: everything before the request is visible after a wait that the event has ended.
// Lifetime: the event is auto-reset and belongs to one wait.
class ORVANE_CONCURRENCY_API HandleNotificationAdapter : public AbstractCancelNotifier {
  public:
    // A HandleNotificationAdapter, registered with the calling thread's run, if there is one, in place of any other
    // notifier.
    [[nodiscard]] static std::shared_ptr<AbstractCancelNotifier> CreateInstance();

    // On purpose: copies the handle as it is. A copy must not outlive the original; both would close the handle.
    HandleNotificationAdapter(const HandleNotificationAdapter&);
    HandleNotificationAdapter& operator=(const HandleNotificationAdapter&) = delete;
    ~HandleNotificationAdapter() override;

    // Sets the flag and signals the event.
    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) override;

    // The event, to be waited for beside what the task waits for.
    HANDLE GetHandle() const;

  private:
    HandleNotificationAdapter();

    const HANDLE m_event;
};

}  // namespace Orvane::Internal
