#include "concurrency/base/mutex.h"

#ifdef _WIN32

#include <new>

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

PCRITICAL_SECTION Section(RecursiveMutex& mutex) noexcept {
    return static_cast<PCRITICAL_SECTION>(mutex.native_handle());
}

}  // namespace

RecursiveMutex::RecursiveMutex() noexcept {
    static_assert(sizeof(m_section) == sizeof(CRITICAL_SECTION));
    // Without the debug data it needs no memory, so it cannot fail.
    InitializeCriticalSectionEx(::new (m_section) CRITICAL_SECTION, 0, CRITICAL_SECTION_NO_DEBUG_INFO);
}

RecursiveMutex::~RecursiveMutex() {
    DeleteCriticalSection(Section(*this));
}

void RecursiveMutex::lock() noexcept {
    EnterCriticalSection(Section(*this));
}

bool RecursiveMutex::try_lock() noexcept {
    return TryEnterCriticalSection(Section(*this)) != FALSE;
}

void RecursiveMutex::unlock() noexcept {
    LeaveCriticalSection(Section(*this));
}

}  // namespace Orvane::Internal

#endif
