// A Win32 critical section as an object, for the two creation locks, and the lock that enters it for a scope.
//
// Threads: any. Recursion: yes, as the platform's. Errors: none.
// Lifetime: no thread may hold or wait for it when it is destroyed.
#pragma once

#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/windows_api.h"

namespace Orvane {

class CriticalSectionLock;

class CriticalSection {
  public:
    CriticalSection();
    virtual ~CriticalSection();
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

  private:
    friend class CriticalSectionLock;
    CRITICAL_SECTION m_section;
};

// Enters on construction, leaves on destruction.
class CriticalSectionLock {
  public:
    explicit CriticalSectionLock(CriticalSection& section,
                                 const std::source_location& where = std::source_location::current());
    ~CriticalSectionLock();
    CriticalSectionLock(const CriticalSectionLock&) = delete;
    CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;

  private:
    CriticalSection& m_owner;
    Internal::LockOrderEntry m_order;
};

}  // namespace Orvane
