// The notifier of the cancellable handle waits, and its event.
//
// Creating and closing an event costs more than a wait does. So an event is kept for a later wait, unless it may still be
// signalled, because a signal belongs to one wait and never reaches another, or unless the wait with it failed.
//
// Threads: created and destroyed on any; Notify() on the thread that cancels.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "concurrency/base/win32.h"
#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/waiting_run.h"

namespace Orvane::Internal {

class WaitEvent : public AbstractCancelNotifier {
  public:
    // Registered with the run in place of any other notifier.
    [[nodiscard]] static std::shared_ptr<WaitEvent> CreateInstance(const WaitingRun& run);

    WaitEvent();
    ~WaitEvent() override;
    WaitEvent(const WaitEvent&) = delete;
    WaitEvent& operator=(const WaitEvent&) = delete;

    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) override;

    // Null if the platform had no event: a wait on it fails as the platform decides.
    HANDLE GetHandle() const { return m_event; }

    // To be told when a wait has ended with this event, which took its signal.
    void SignalTaken() noexcept { --m_signals; }

    // To be told when a wait has failed: the event may be what it failed for.
    void WaitFailed() noexcept { m_hasFailed = true; }

  private:
    const HANDLE m_event;

    // Sent and not taken. Two may have become one in the event; then it counts as signalled although it is not.
    std::atomic<int> m_signals = 0;

    bool m_hasFailed = false;
};

// Closes what is kept for later waits.
void CloseSpareEvents() noexcept;

}  // namespace Orvane::Internal
