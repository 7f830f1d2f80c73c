// The bottom half of the library's lifetime: the count, its lock and the slot of the current task. Knows nothing of
// what is torn down; concurrency_lifetime.cpp does.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/win32.h"

namespace Orvane::Internal {

// Serialises initialisation and uninitialisation. Taken before every other lock of the library. Constructed on first
// use: other modules' static objects may initialise the library.
RankedMutex<std::recursive_mutex, LockRank::Lifetime>& LifetimeMutex();

struct InitializationState {
    // Initialisations less uninitialisations. Guarded by LifetimeMutex().
    std::int32_t initCount = 0;

    // While the last uninitialisation is under way: another one within it only counts. Guarded by LifetimeMutex().
    bool isTearingDown = false;

    // What IsConcurrencyInitialized() reads: follows initCount, but reaches 0 only when the teardown is done. The
    // scheduler's thread asks while the thread that holds LifetimeMutex() waits for it to end.
    std::atomic<std::int32_t> publishedCount = 0;

    // From TlsAlloc; not cleared when the slot is freed. Read by every thread that runs tasks, without a lock.
    std::atomic<DWORD> currentTaskTlsIndex = 0;

    // Whether currentTaskTlsIndex is ours now. Before the first initialisation it is 0 and after the last
    // uninitialisation it is stale: both are slots that belong to somebody else.
    std::atomic<bool> slotIsLive = false;
};

extern InitializationState g_initializationState;

// The slot that holds the calling thread's current future: the allocated one, or the module's reserve while the
// library is not initialised, so that tasks see their own cancellation in that state too.
DWORD CurrentTaskSlot() noexcept;

// The module's reserve; TLS_OUT_OF_INDEXES as long as none has been needed.
DWORD ReserveSlotIfAny() noexcept;

// For the module's entry point, at unload.
void FreeReserveSlot() noexcept;

}  // namespace Orvane::Internal
