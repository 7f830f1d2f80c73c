// An interprocess_mutex whose kernel mutex the test can name: the call that makes it is watched.
//
// Threads: construct one at a time.
#pragma once

#include <optional>

#include "concurrency/base/windows_api.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

class KnownMutex {
  public:
    explicit KnownMutex(const wchar_t* name = nullptr) {
        const ImportPatch patch(LibraryUnderTest(), "CreateMutexW", &Create);
        m_mutex.emplace(name);
        m_handle = s_made;
    }

    Orvane::interprocess_mutex& operator*() { return *m_mutex; }
    Orvane::interprocess_mutex* operator->() { return &*m_mutex; }
    HANDLE Handle() const { return m_handle; }

    // Destroys the mutex.
    void Reset() { m_mutex.reset(); }

  private:
    static HANDLE WINAPI Create(LPSECURITY_ATTRIBUTES security, BOOL isOwned, LPCWSTR name) {
        s_made = ::CreateMutexW(security, isOwned, name);
        return s_made;
    }

    static inline HANDLE s_made = nullptr;

    std::optional<Orvane::interprocess_mutex> m_mutex;
    HANDLE m_handle = nullptr;
};

}  // namespace Zarvo::Test
