// A tick count for the library that stands still until the test moves it.
//
// Threads: any.
// Lifetime: one at a time.
#pragma once

#include <atomic>
#include <functional>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

class FakeTicks {
  public:
    explicit FakeTicks(DWORD start) : m_patch(LibraryUnderTest(), "GetTickCount", &Read) {
        s_now = start;
        s_reads = 0;
    }
    ~FakeTicks() { s_onRead = nullptr; }
    FakeTicks(const FakeTicks&) = delete;
    FakeTicks& operator=(const FakeTicks&) = delete;

    // Units: milliseconds. Wraps as the real count does.
    void Advance(DWORD milliseconds) { s_now += milliseconds; }

    // Called on the reading thread at every read, with its number, counted from 1. Set it before the first.
    void OnRead(std::function<void(int)> action) { s_onRead = std::move(action); }

  private:
    static DWORD WINAPI Read() {
        const int number = ++s_reads;
        if (s_onRead) {
            s_onRead(number);
        }
        return s_now;
    }

    static inline std::atomic<DWORD> s_now = 0;
    static inline std::atomic<int> s_reads = 0;
    static inline std::function<void(int)> s_onRead;
    ImportPatch m_patch;
};

}  // namespace Zarvo::Test
