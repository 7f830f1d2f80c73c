// Which module (program or DLL) some code is compiled into, for what the library holds of it.
#pragma once

#include "concurrency/base/export.h"

namespace Orvane::Internal {

class ModuleLedger;

// Of the module that the address is in: one for each module, until the process ends.
//
// Threads: any.
// Errors: std::bad_alloc; std::system_error if the address is in no module.
ORVANE_CONCURRENCY_API ModuleLedger& LedgerOf(const void* address);

// Of the module that calls: each has this function of its own.
inline ModuleLedger& LedgerOfThisModule() {
    static const char inThisModule = 0;
    static ModuleLedger& ledger = LedgerOf(&inThisModule);
    return ledger;
}

}  // namespace Orvane::Internal
