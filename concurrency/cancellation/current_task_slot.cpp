#include "concurrency/cancellation/current_task_slot.h"

#include <atomic>
#include <utility>

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

// From TlsAlloc; not cleared when the slot is freed. Every thread that runs tasks reads it without a lock.
constinit std::atomic<DWORD> g_slot = 0;

// Whether g_slot is ours now. Before the first allocation it is 0 and after a release it is stale: both are indexes of slots
// that belong to others.
constinit std::atomic<bool> g_slotIsLive = false;

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

// What a slot points to.
using Cell = std::weak_ptr<FutureState>;

Cell* CellIn(DWORD slot) noexcept {
    return static_cast<Cell*>(TlsGetValue(slot));
}

struct SlotAndCell {
    DWORD slot;
    Cell* cell;
};

// The slot in use. If it is empty, the reserve may hold the cell: of a run that began before the library was initialised.
SlotAndCell FindCell() noexcept {
    const DWORD slot = CurrentTaskSlot();
    Cell* const cell = CellIn(slot);
    const DWORD reserve = g_reserveSlot.load(std::memory_order_acquire);
    if (cell == nullptr && reserve != slot && reserve != TLS_OUT_OF_INDEXES) {
        if (Cell* const early = CellIn(reserve)) {
            return {reserve, early};
        }
    }
    return {slot, cell};
}

}  // namespace

std::shared_ptr<FutureState> CurrentFuture() {
    const Cell* const cell = FindCell().cell;
    return cell != nullptr ? cell->lock() : nullptr;
}

std::weak_ptr<FutureState> ExchangeCurrentFuture(std::weak_ptr<FutureState> future) {
    const auto [slot, cell] = FindCell();
    const bool install = !future.expired();
    if (cell == nullptr) {
        if (install) {
            auto fresh = std::make_unique<Cell>(std::move(future));
            if (TlsSetValue(slot, fresh.get()) != FALSE) {
                static_cast<void>(fresh.release());  // the slot's now
            }
        }
        return {};
    }
    // Into the old cell rather than into a new one: this runs in a scope guard, where an allocation must not fail.
    cell->swap(future);
    if (!install && TlsSetValue(slot, nullptr) != FALSE) {
        delete cell;
    }
    return future;
}

void AllocateCurrentTaskSlot() noexcept {
    g_slot.store(TlsAlloc(), std::memory_order_relaxed);
    g_slotIsLive.store(true, std::memory_order_release);
}

void FreeCurrentTaskSlot() noexcept {
    g_slotIsLive.store(false, std::memory_order_release);
    TlsFree(g_slot.load(std::memory_order_relaxed));
}

DWORD CurrentTaskSlot() noexcept {
    if (g_slotIsLive.load(std::memory_order_acquire)) {
        return g_slot.load(std::memory_order_relaxed);
    }
    return ReserveSlot();
}

void FreeReserveSlot() noexcept {
    const DWORD slot = g_reserveSlot.exchange(TLS_OUT_OF_INDEXES);
    if (slot != TLS_OUT_OF_INDEXES) {
        TlsFree(slot);
    }
}

}  // namespace Orvane::Internal
