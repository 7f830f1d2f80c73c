// An event of the platform.
//
// Threads: any, but for Close().
#pragma once

#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {

class OwnEvent {
  public:
    enum class Kind { Manual, AutoReset };

    explicit OwnEvent(Kind kind = Kind::Manual)
        : m_handle(CreateEventW(nullptr, kind == Kind::Manual ? TRUE : FALSE, FALSE, nullptr)) {}
    ~OwnEvent() { Close(); }
    OwnEvent(const OwnEvent&) = delete;
    OwnEvent& operator=(const OwnEvent&) = delete;

    HANDLE Get() const { return m_handle; }
    void Set() const { SetEvent(m_handle); }
    void Close() {
        if (m_handle != nullptr) {
            CloseHandle(m_handle);
        }
        m_handle = nullptr;
    }

  private:
    HANDLE m_handle;
};

}  // namespace Zarvo::Test
