// A number that processes share: page memory under a name.
//
// Errors: std::system_error.
// Lifetime: the memory is gone with the last object of its name.
#pragma once

#include <string>
#include <system_error>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {

class SharedNumber {
  public:
    // Zero when nobody else has it yet.
    explicit SharedNumber(const std::wstring& name)
        : m_mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(long), name.c_str())),
          m_number(m_mapping != nullptr
                       ? static_cast<volatile long*>(MapViewOfFile(m_mapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(long)))
                       : nullptr) {
        if (m_number == nullptr) {
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "shared number");
        }
    }
    ~SharedNumber() {
        UnmapViewOfFile(const_cast<long*>(m_number));
        CloseHandle(m_mapping);
    }
    SharedNumber(const SharedNumber&) = delete;
    SharedNumber& operator=(const SharedNumber&) = delete;

    long Get() const { return *m_number; }

    // On purpose in two steps with a gap between them: without exclusion, additions get lost.
    void AddOne() {
        const long before = *m_number;
        SwitchToThread();
        *m_number = before + 1;
    }

  private:
    const HANDLE m_mapping;
    volatile long* const m_number;
};

// An event that processes share, manual-reset.
class SharedEvent {
  public:
    explicit SharedEvent(const std::wstring& name) : m_handle(CreateEventW(nullptr, TRUE, FALSE, name.c_str())) {}
    ~SharedEvent() { CloseHandle(m_handle); }
    SharedEvent(const SharedEvent&) = delete;
    SharedEvent& operator=(const SharedEvent&) = delete;

    void Set() { SetEvent(m_handle); }

    // Whether it was set within a minute.
    bool Wait() { return WaitForSingleObject(m_handle, 60'000) == WAIT_OBJECT_0; }

  private:
    const HANDLE m_handle;
};

}  // namespace Zarvo::Test
