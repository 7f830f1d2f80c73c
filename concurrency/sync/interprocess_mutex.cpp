#include "concurrency/sync/interprocess_mutex.h"

#include <cstdint>
#include <cwchar>
#include <stdexcept>

#include "concurrency/base/hresult.h"
#include "concurrency/base/report.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/noted_waits.h"
#include "concurrency/sync/lock_exception.h"
#include "zarvo_logging/object_names.h"

namespace Orvane {

namespace {

// A handle as messages show it: its low 32 bits, which are all it has.
unsigned Shown(HANDLE handle) {
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(handle));
}

}  // namespace

interprocess_mutex::interprocess_mutex() : interprocess_mutex(nullptr) {}

interprocess_mutex::interprocess_mutex(const wchar_t* name) {
    const std::wstring fullName = name != nullptr ? CheckAndPrependZarvoObjectsNamespace(name) : std::wstring();
    m_handle = CreateMutexW(nullptr, FALSE, name != nullptr ? fullName.c_str() : nullptr);
    if (m_handle == nullptr) {
        const unsigned error = Internal::HresultOf(GetLastError());
        g_OrvaneLogging.Report(4, 16, L"interprocess_mutex::interprocess_mutex",
                               L"Failed to create mutex, error code %x", error);
        throw std::runtime_error("interprocess_mutex::interprocess_mutex::Failed to create mutex");
    }
}

interprocess_mutex::~interprocess_mutex() {
    if (m_locked) {
        Internal::ReportNoThrow(4, 16, L"interprocess_mutex::~interprocess_mutex",
                                L"Attempt to destroy locked mutex %x", Shown(m_handle));
    }
    if (CloseHandle(m_handle) == FALSE) {
        const unsigned error = Internal::HresultOf(GetLastError());
        Internal::ReportNoThrow(4, 16, L"interprocess_mutex::~interprocess_mutex",
                                L"Failed to close handle to mutex %x, error code %x", Shown(m_handle), error);
    }
}

void interprocess_mutex::lock() {
    // On purpose: an abandoned mutex (0x80) is a failure as well, although the caller owns it now.
    if (Internal::WaitNoted(Internal::WaitKind::InterprocessMutex, m_handle, INFINITE) != WAIT_OBJECT_0) {
        const unsigned error = Internal::HresultOf(GetLastError());
        g_OrvaneLogging.Report(4, 16, L"interprocess_mutex::DoLock", L"Failed to lock mutex %x, error code %x",
                               Shown(m_handle), error);
        throw LockException("interprocess_mutex: Failed to lock mutex");
    }
    m_locked = true;
    m_owner = ::GetCurrentThreadId();
}

void interprocess_mutex::unlock() {
    if (ReleaseMutex(m_handle) == FALSE) {
        const unsigned error = Internal::HresultOf(GetLastError());
        g_OrvaneLogging.Report(4, 16, L"interprocess_mutex::DoUnlock", L"Failed to unlock mutex %x, error code %x",
                               Shown(m_handle), error);
        throw LockException("interprocess_mutex: Failed to unlock mutex");
    }
    m_locked = false;
    m_owner = 0;
}

std::wstring interprocess_mutex::CheckAndPrependZarvoObjectsNamespace(const wchar_t* name) {
    if (std::wcschr(name, L'\\') != nullptr) {
        return name;
    }
    return Zarvo::Logging::PrependZarvoObjectsNamespace(name);
}

}  // namespace Orvane
