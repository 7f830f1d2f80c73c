#include "concurrency/cancellation/future_notification_adapter.h"

#include <atomic>
#include <utility>

#include "concurrency/cancellation/wait_protocol.h"
#include "concurrency/tasks/future_state.h"

namespace Orvane::Internal {

std::shared_ptr<AbstractCancelNotifier> FutureNotificationAdapter::CreateInstance(std::weak_ptr<FutureState> future) {
    return RegisterWithCurrentRun(
        std::shared_ptr<AbstractCancelNotifier>(new FutureNotificationAdapter(std::move(future))));
}

FutureNotificationAdapter::FutureNotificationAdapter(std::weak_ptr<FutureState> future) : m_future(std::move(future)) {}

FutureNotificationAdapter::FutureNotificationAdapter(const FutureNotificationAdapter&) = default;
FutureNotificationAdapter& FutureNotificationAdapter::operator=(const FutureNotificationAdapter&) = default;
FutureNotificationAdapter::~FutureNotificationAdapter() = default;

void FutureNotificationAdapter::Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) {
    std::atomic_ref(requested).store(true);
    lock.unlock();
    if (const auto future = m_future.lock()) {
        future->RequestCancel();
    }
}

}  // namespace Orvane::Internal
