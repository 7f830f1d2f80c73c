// The library's own mutex: the platform's critical section, whatever the C++ runtime makes of its mutexes. With it a
// Condition needs no lock of its own. Its members are named as the standard's.
//
// Not for callers.
//
// Threads: any. Recursion: yes. Errors: none. Memory: none.
// Lifetime: no thread may hold or wait for it when it is destroyed.
#pragma once

#ifndef _WIN32
#include <mutex>
#endif

namespace Orvane::Internal {

#ifdef _WIN32

class RecursiveMutex {
  public:
    RecursiveMutex() noexcept;
    ~RecursiveMutex();
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    void lock() noexcept;
    [[nodiscard]] bool try_lock() noexcept;
    void unlock() noexcept;

    // A CRITICAL_SECTION.
    using native_handle_type = void*;
    native_handle_type native_handle() noexcept { return m_section; }

  private:
    alignas(void*) unsigned char m_section[5 * sizeof(void*)];
};

#else  // the tests' native build

using RecursiveMutex = std::recursive_mutex;

#endif

}  // namespace Orvane::Internal
