// A component that leaves: what the library holds of its module.

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/module_ledger.h"
#include "tests/schedules/controller/scenario.h"

namespace {

using Orvane::Internal::ModuleLedger;
using Schedules::Check;
using Schedules::Party;

// In a module that stays, so that pins are only counted.
const void* AddressInAModule() {
    return reinterpret_cast<const void*>(&SetEvent);
}

}  // namespace

SCENARIO(ModuleIsPinnedAndUnpinnedByTwo) {
    ModuleLedger ledger(nullptr, false);
    const auto use = [&] {
        ledger.Pin(AddressInAModule());
        Check(ledger.Count(ModuleLedger::Pins) >= 1, "it is pinned");
        ledger.Unpin();
    };
    Party other(use);
    use();
    other.Join();
    Check(ledger.IsClear(), "nothing is held");
}
