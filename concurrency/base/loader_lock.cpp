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

bool HoldsLoaderLock() noexcept {
    const auto* const block = reinterpret_cast<const std::byte*>(NtCurrentTeb()->ProcessEnvironmentBlock);
    const auto* const lock = *reinterpret_cast<CRITICAL_SECTION* const*>(block + kLoaderLockOffset);
    return lock != nullptr && reinterpret_cast<std::uintptr_t>(lock->OwningThread) == ::GetCurrentThreadId();
}

}  // namespace Orvane::Internal
