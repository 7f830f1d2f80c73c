#pragma once

#include <mutex>

#include "concurrency/base/export.h"

namespace Orvane::Internal {

// What a cancellation request calls to wake a task out of the wait it is blocked in.
//
// Threads: Notify() runs on the thread that cancels.
// Cancellation: no cancellation points.
// Errors: unlocking a lock that owns nothing is std::system_error (operation not permitted).
// Memory: what Notify() locks or writes orders: everything before the request is visible to the waiter behind it.
// Lifetime: the registration holds a notifier weakly; a request keeps it alive while it calls Notify().
class ORVANE_CONCURRENCY_API AbstractCancelNotifier {
  public:
    // Has no fields. A copy is not registered.
    AbstractCancelNotifier(const AbstractCancelNotifier&) noexcept;
    AbstractCancelNotifier& operator=(const AbstractCancelNotifier&) noexcept;

    // Entered with `lock` owning the cancellation object's mutex; `requested` is that object's flag. Unlock `lock`
    // before taking any other lock: the waiter holds its own while it takes the cancellation object's. While holding a
    // lock that Notify() takes, never call an operation of a task or future. Write `requested` through
    // std::atomic_ref: it is read under the cancellation object's mutex, which is free by then.
    virtual void Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) = 0;

  protected:
    // For derived classes, which are destroyed through std::shared_ptr.
    AbstractCancelNotifier();
    virtual ~AbstractCancelNotifier();
};

}  // namespace Orvane::Internal
