#include "concurrency/cancellation/handle_notification_adapter.h"

#include <atomic>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/wait_protocol.h"

namespace Orvane::Internal {

std::shared_ptr<AbstractCancelNotifier> HandleNotificationAdapter::CreateInstance() {
    return RegisterWithCurrentRun(std::shared_ptr<AbstractCancelNotifier>(new HandleNotificationAdapter()));
}

HandleNotificationAdapter::HandleNotificationAdapter() : m_event(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

HandleNotificationAdapter::HandleNotificationAdapter(const HandleNotificationAdapter&) = default;

HandleNotificationAdapter::~HandleNotificationAdapter() {
    CloseHandle(m_event);
}

void HandleNotificationAdapter::Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) {
    std::atomic_ref(requested).store(true);
    lock.unlock();
    SetEvent(m_event);
}

HANDLE HandleNotificationAdapter::GetHandle() const {
    return m_event;
}

}  // namespace Orvane::Internal
