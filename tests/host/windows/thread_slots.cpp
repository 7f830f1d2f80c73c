// Thread-local slots. On purpose without a lock: it would order the threads that use them, and hide races between them.

#include <array>
#include <atomic>

#include "tests/host/windows/errors.h"
#include "tests/host/windows/threads.h"

namespace {

constexpr DWORD kSlots = 1088;

// The platform's own libraries hold these.
constexpr DWORD kFirstFree = 3;

// How often a slot has been allocated or freed: odd while it is allocated. A value stored under another number is that
// of an earlier allocation, and no longer there.
constinit std::array<std::atomic<std::uint32_t>, kSlots> g_generations{};

struct Slot {
    std::uint32_t generation = 0;
    void* value = nullptr;
};

thread_local constinit std::array<Slot, kSlots> t_slots{};

}  // namespace

DWORD TlsAlloc() {
    for (DWORD slot = kFirstFree; slot < kSlots; ++slot) {
        std::uint32_t generation = g_generations[slot].load(std::memory_order_relaxed);
        if (generation % 2 == 0 &&
            g_generations[slot].compare_exchange_strong(generation, generation + 1, std::memory_order_relaxed)) {
            return slot;
        }
    }
    SetLastError(ERROR_NO_MORE_ITEMS);
    return TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD slot) {
    if (slot < kSlots) {
        std::uint32_t generation = g_generations[slot].load(std::memory_order_relaxed);
        if (generation % 2 == 1 &&
            g_generations[slot].compare_exchange_strong(generation, generation + 1, std::memory_order_relaxed)) {
            return TRUE;
        }
    }
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

LPVOID TlsGetValue(DWORD slot) {
    if (slot >= kSlots) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    SetLastError(ERROR_SUCCESS);
    const Slot& own = t_slots[slot];
    return own.generation == g_generations[slot].load(std::memory_order_relaxed) ? own.value : nullptr;
}

// As on the platform, a slot that is not allocated takes values all the same.
BOOL TlsSetValue(DWORD slot, LPVOID value) {
    if (slot >= kSlots) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    t_slots[slot] = {g_generations[slot].load(std::memory_order_relaxed), value};
    return TRUE;
}
