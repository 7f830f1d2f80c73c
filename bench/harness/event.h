// An event of the platform, not signalled at first.
//
// Errors: std::system_error if it cannot be created.
#pragma once

#include <system_error>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Bench {

class Event {
  public:
    enum class Reset { kByOneWait, kNever };

    Event() : Event(Reset::kByOneWait) {}
    explicit Event(Reset reset) : m_handle(CreateEventW(nullptr, reset == Reset::kNever, FALSE, nullptr)) {
        if (m_handle == nullptr) {
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateEventW");
        }
    }
    ~Event() { CloseHandle(m_handle); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void Set() noexcept { SetEvent(m_handle); }
    void Wait() noexcept { WaitForSingleObject(m_handle, INFINITE); }
    HANDLE Handle() const noexcept { return m_handle; }

  private:
    const HANDLE m_handle;
};

}  // namespace Zarvo::Bench
