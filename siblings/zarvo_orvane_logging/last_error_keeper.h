// Leaves the thread's last error as it was: callers ask for it after they have said what failed.
#pragma once

#include <windows.h>

namespace Orvane::Reports {

class LastErrorKeeper {
  public:
    LastErrorKeeper() noexcept : m_error(GetLastError()) {}
    ~LastErrorKeeper() { SetLastError(m_error); }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

  private:
    DWORD m_error;
};

}  // namespace Orvane::Reports
