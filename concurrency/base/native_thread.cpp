#include "concurrency/base/native_thread.h"

#include <process.h>

#include <cstdint>
#include <exception>
#include <system_error>

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

[[noreturn]] void Throw(std::errc condition) {
    throw std::system_error(std::make_error_code(condition));
}

}  // namespace

NativeThread::~NativeThread() {
    Close();
}

NativeThread::NativeThread(NativeThread&& other) noexcept
    : m_handle(std::exchange(other.m_handle, nullptr)), m_id(std::exchange(other.m_id, 0)) {}

NativeThread& NativeThread::operator=(NativeThread&& other) noexcept {
    std::swap(m_handle, other.m_handle);
    std::swap(m_id, other.m_id);
    return *this;
}

NativeThread NativeThread::StartRaw(RawEntry entry, void* argument) {
    // Makes the C++ runtime set up its per-thread storage here. A new thread would do it otherwise; if the end of the
    // process killed it midway, the thread that ends the process would wait for it for ever. Volatile: the call is
    // declared to have no effect, and would be dropped.
    [[maybe_unused]] const volatile int setUp = std::uncaught_exceptions();
    unsigned id = 0;
    const std::uintptr_t handle = _beginthreadex(nullptr, 0, entry, argument, 0, &id);
    if (handle == 0) {
        Throw(std::errc::resource_unavailable_try_again);
    }
    NativeThread thread;
    thread.m_handle = reinterpret_cast<HANDLE>(handle);
    thread.m_id = id;
    return thread;
}

bool NativeThread::IsCurrentThread() const noexcept {
    return IsJoinable() && m_id == ::GetCurrentThreadId();
}

bool NativeThread::EndsWithin(std::chrono::milliseconds limit) const noexcept {
    return WaitForSingleObject(m_handle, static_cast<DWORD>(limit.count())) != WAIT_TIMEOUT;
}

void NativeThread::Join() {
    if (IsCurrentThread()) {
        Throw(std::errc::resource_deadlock_would_occur);
    }
    if (WaitForSingleObject(m_handle, INFINITE) != WAIT_OBJECT_0) {
        Throw(std::errc::no_such_process);
    }
    Close();
}

void NativeThread::Close() noexcept {
    if (m_handle != nullptr) {
        CloseHandle(m_handle);
        m_handle = nullptr;
    }
}

}  // namespace Orvane::Internal
