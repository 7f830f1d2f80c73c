#include "concurrency/base/loader_lock.h"

#include <cstddef>
#include <cstdint>

#include "concurrency/base/windows_api.h"

#include <winternl.h>

namespace Orvane::Internal {

namespace {

// Where the process's block names the critical section. No function of the platform tells; the place has been the same in every
// 64-bit version, and debuggers rely on it.
constexpr std::size_t kLoaderLockOffset = 0x110;

}  // namespace

// At -O3 GCC takes the platform's read through the thread's segment register for one through a null pointer.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
#endif
bool HoldsLoaderLock() noexcept {
    const auto* const block = reinterpret_cast<const std::byte*>(NtCurrentTeb()->ProcessEnvironmentBlock);
    const auto* const lock = *reinterpret_cast<CRITICAL_SECTION* const*>(block + kLoaderLockOffset);
    return lock != nullptr && reinterpret_cast<std::uintptr_t>(lock->OwningThread) == ::GetCurrentThreadId();
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

}  // namespace Orvane::Internal
