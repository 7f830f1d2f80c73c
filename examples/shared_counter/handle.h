// A handle of the system, closed at the end.
#pragma once

#include <windows.h>

#include <system_error>

namespace SharedCounter {

[[noreturn]] inline void ThrowLastError(const char* what) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

class Handle {
  public:
    // Errors: std::system_error, with the last error, if `handle` is null.
    Handle(HANDLE handle, const char* what) : m_handle(handle) {
        if (m_handle == nullptr) {
            ThrowLastError(what);
        }
    }
    ~Handle() { CloseHandle(m_handle); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    HANDLE Get() const { return m_handle; }

  private:
    const HANDLE m_handle;
};

}  // namespace SharedCounter
