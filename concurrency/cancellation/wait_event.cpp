#include "concurrency/cancellation/wait_event.h"

#include <array>
#include <atomic>

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

// Events that are not signalled and that no wait uses. Without a lock: at the end of the process it might be one that an
// ended thread still holds.
class SpareEvents {
  public:
    constexpr SpareEvents() = default;
    ~SpareEvents() { Close(); }
    SpareEvents(const SpareEvents&) = delete;
    SpareEvents& operator=(const SpareEvents&) = delete;

    // Null if there is none.
    HANDLE Take() noexcept {
        for (std::atomic<HANDLE>& place : m_places) {
            if (place.load(std::memory_order_relaxed) != nullptr) {
                if (const HANDLE event = place.exchange(nullptr)) {
                    return event;
                }
            }
        }
        return nullptr;
    }

    // Returns false if there is no room.
    bool Keep(HANDLE event) noexcept {
        for (std::atomic<HANDLE>& place : m_places) {
            HANDLE none = nullptr;
            if (place.load(std::memory_order_relaxed) == nullptr && place.compare_exchange_strong(none, event)) {
                return true;
            }
        }
        return false;
    }

    void Close() noexcept {
        while (const HANDLE event = Take()) {
            CloseHandle(event);
        }
    }

  private:
    std::array<std::atomic<HANDLE>, 16> m_places{};
};

constinit SpareEvents g_spareEvents;

HANDLE TakeOrCreate() {
    const HANDLE spare = g_spareEvents.Take();
    return spare != nullptr ? spare : CreateEventW(nullptr, FALSE, FALSE, nullptr);
}

}  // namespace

std::shared_ptr<WaitEvent> WaitEvent::CreateInstance(const WaitingRun& run) {
    return run.Register(std::make_shared<WaitEvent>());
}

WaitEvent::WaitEvent() : m_event(TakeOrCreate()) {}

WaitEvent::~WaitEvent() {
    if (m_signals != 0 || m_hasFailed || m_event == nullptr || !g_spareEvents.Keep(m_event)) {
        CloseHandle(m_event);
    }
}

void WaitEvent::Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) {
    std::atomic_ref(requested).store(true);
    lock.unlock();
    ++m_signals;
    SetEvent(m_event);
}

void CloseSpareEvents() noexcept {
    g_spareEvents.Close();
}

}  // namespace Orvane::Internal
