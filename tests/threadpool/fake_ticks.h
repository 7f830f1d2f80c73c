// A tick count for the library that stands still until the test moves it.
//
// Threads: any.
// Lifetime: one at a time.
#pragma once

#include <atomic>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

class FakeTicks {
  public:
    explicit FakeTicks(DWORD start) : m_patch(LibraryUnderTest(), "GetTickCount", &Read) { s_now = start; }

    // Units: milliseconds. Wraps as the real count does.
    void Advance(DWORD milliseconds) { s_now += milliseconds; }

  private:
    static DWORD WINAPI Read() { return s_now; }

    static inline std::atomic<DWORD> s_now = 0;
    ImportPatch m_patch;
};

}  // namespace Zarvo::Test
