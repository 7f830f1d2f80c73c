// An event that the two processes share through its name. Once set, it stays set.
#pragma once

#include <string>

#include "examples/shared_counter/handle.h"

namespace SharedCounter {

class Event {
  public:
    // Errors: std::system_error.
    explicit Event(const std::wstring& name)
        : m_handle(CreateEventW(nullptr, TRUE, FALSE, (L"Local\\" + name).c_str()), "event") {}

    void Set() { SetEvent(m_handle.Get()); }
    HANDLE Get() const { return m_handle.Get(); }

  private:
    const Handle m_handle;
};

}  // namespace SharedCounter
