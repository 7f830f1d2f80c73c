// A Win32 handle that is closed with its owner.
#pragma once

#include <windows.h>

#include <utility>

namespace FileDigests {

class Handle {
  public:
    Handle() = default;
    explicit Handle(HANDLE handle) : m_handle(handle) {}
    Handle(Handle&& other) noexcept : m_handle(std::exchange(other.m_handle, INVALID_HANDLE_VALUE)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    ~Handle() {
        if (IsOpen()) {
            CloseHandle(m_handle);
        }
    }

    bool IsOpen() const { return m_handle != INVALID_HANDLE_VALUE; }
    HANDLE Get() const { return m_handle; }

  private:
    HANDLE m_handle = INVALID_HANDLE_VALUE;
};

}  // namespace FileDigests
