#pragma once

#include <memory>
#include <mutex>

#include "concurrency/base/export.h"
#include "concurrency/cancellation/abstract_cancel_notifier.h"

namespace Orvane::Internal {

class FutureState;

// Passes a cancellation request on to another task's future.
//
// Threads: CreateInstance() on the task's thread; Notify() on the thread that cancels.
// Cancellation: no cancellation points.
// Errors: std::bad_alloc, std::system_error; Notify() passes on what the other future's RequestCancel() throws.
// Memory: everything before the request is visible to the other run once it finds it.
// Lifetime: keep the returned pointer for as long as the request is to be passed on. Holds the future weakly.
class ORVANE_CONCURRENCY_API FutureNotificationAdapter : public AbstractCancelNotifier {
  public:
    // Registers with the calling thread's run, if there is one, in place of any other notifier.
    [[nodiscard]] static std::shared_ptr<AbstractCancelNotifier> CreateInstance(std::weak_ptr<FutureState> future);

    // A copy passes on to the same future, but is not registered.
    FutureNotificationAdapter(const FutureNotificationAdapter&);
    FutureNotificationAdapter& operator=(const FutureNotificationAdapter&);
    ~FutureNotificationAdapter() override;

    // Requests cancellation of the future.
    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) override;

  private:
    explicit FutureNotificationAdapter(std::weak_ptr<FutureState> future);

    std::weak_ptr<FutureState> m_future;
};

}  // namespace Orvane::Internal
