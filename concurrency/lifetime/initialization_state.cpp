#include "concurrency/lifetime/initialization_state.h"

#include "concurrency/base/windows_api.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"

namespace Orvane::Internal {

constinit InitializationState g_initializationState;

namespace {

constinit std::atomic<DWORD> g_reserveSlot = TLS_OUT_OF_INDEXES;

DWORD ReserveSlot() noexcept {
    DWORD slot = g_reserveSlot.load(std::memory_order_acquire);
    if (slot != TLS_OUT_OF_INDEXES) {
        return slot;
    }
    const DWORD fresh = TlsAlloc();
    if (fresh == TLS_OUT_OF_INDEXES || g_reserveSlot.compare_exchange_strong(slot, fresh)) {
        return fresh;
    }
    TlsFree(fresh);  // another thread was first: `slot` is now its index
    return slot;
}

}  // namespace

RankedMutex<std::recursive_mutex, LockRank::Lifetime>& LifetimeMutex() {
    static RankedMutex<std::recursive_mutex, LockRank::Lifetime> mutex;
    return mutex;
}

DWORD CurrentTaskSlot() noexcept {
    if (g_initializationState.slotIsLive.load(std::memory_order_acquire)) {
        return g_initializationState.currentTaskTlsIndex.load(std::memory_order_relaxed);
    }
    return ReserveSlot();
}

DWORD ReserveSlotIfAny() noexcept {
    return g_reserveSlot.load(std::memory_order_acquire);
}

void FreeReserveSlot() noexcept {
    const DWORD slot = g_reserveSlot.exchange(TLS_OUT_OF_INDEXES);
    if (slot != TLS_OUT_OF_INDEXES) {
        TlsFree(slot);
    }
}

bool IsConcurrencyInitialized() {
    return g_initializationState.publishedCount.load(std::memory_order_acquire) > 0;
}

}  // namespace Orvane::Internal
