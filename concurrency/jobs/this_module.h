// Which module (program or DLL) some code is compiled into, for what the library holds of it.
//
// Not for callers.
#pragma once

#include <atomic>

#include "concurrency/base/export.h"

// Where modules share inline functions unless they say otherwise.
#ifdef __ELF__
#define ORVANE_OF_THIS_MODULE __attribute__((visibility("hidden")))
#else
#define ORVANE_OF_THIS_MODULE
#endif

namespace Orvane::Internal {

class ModuleLedger;

// Of the module that the address is in: one for each module, until the process ends.
//
// Threads: any.
// Errors: std::bad_alloc; std::system_error if the address is in no module.
ORVANE_CONCURRENCY_API ModuleLedger& LedgerOf(const void* address);

// Of the module that calls: each has this function of its own.
ORVANE_OF_THIS_MODULE inline ModuleLedger& LedgerOfThisModule() {
    // On purpose no static reference: its guard would be held while the platform's loader is asked, whose lock another thread
    // may hold that waits for the guard.
    static constinit std::atomic<ModuleLedger*> known = nullptr;
    ModuleLedger* ledger = known.load(std::memory_order_acquire);
    if (ledger == nullptr) {
        ledger = &LedgerOf(&known);
        known.store(ledger, std::memory_order_release);
    }
    return *ledger;
}

}  // namespace Orvane::Internal
