// The system's own mutexes, as the standard library's guards want them.
//
// Threads: lock() and unlock() on any; only the owner unlocks.
#pragma once

#include <string>
#include <system_error>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Bench {

class SystemCriticalSection {
  public:
    SystemCriticalSection() { InitializeCriticalSection(&m_section); }
    ~SystemCriticalSection() { DeleteCriticalSection(&m_section); }
    SystemCriticalSection(const SystemCriticalSection&) = delete;
    SystemCriticalSection& operator=(const SystemCriticalSection&) = delete;

    void lock() { EnterCriticalSection(&m_section); }
    void unlock() { LeaveCriticalSection(&m_section); }

  private:
    CRITICAL_SECTION m_section;
};

class SlimLock {
  public:
    void lock() { AcquireSRWLockExclusive(&m_lock); }
    void unlock() { ReleaseSRWLockExclusive(&m_lock); }

  private:
    SRWLOCK m_lock = SRWLOCK_INIT;
};

// Errors: std::system_error if it cannot be created.
class KernelMutex {
  public:
    explicit KernelMutex(const std::wstring& name) : m_handle(CreateMutexW(nullptr, FALSE, name.c_str())) {
        if (m_handle == nullptr) {
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateMutexW");
        }
    }
    ~KernelMutex() { CloseHandle(m_handle); }
    KernelMutex(const KernelMutex&) = delete;
    KernelMutex& operator=(const KernelMutex&) = delete;

    void lock() { WaitForSingleObject(m_handle, INFINITE); }
    void unlock() { ReleaseMutex(m_handle); }

  private:
    const HANDLE m_handle;
};

}  // namespace Zarvo::Bench
