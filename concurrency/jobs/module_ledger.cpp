#include "concurrency/jobs/module_ledger.h"

#include <list>
#include <system_error>

#include "concurrency/base/never_destroyed.h"

namespace Orvane::Internal {

namespace {

struct Ledgers {
    RankedMutex<std::mutex, LockRank::Leaf> mutex;
    std::list<ModuleLedger> all ORVANE_GUARDED_BY(mutex);
};

// Without a destructor: jobs may end until the process does.
Ledgers& AllLedgers() {
    static NeverDestroyed<Ledgers> ledgers;
    return *ledgers;
}

HMODULE ModuleAt(const void* address, DWORD flags) {
    HMODULE module = nullptr;
    if (GetModuleHandleExW(flags | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, static_cast<LPCWSTR>(address), &module) ==
        FALSE) {
        throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), "GetModuleHandleEx");
    }
    return module;
}

}  // namespace

ModuleLedger& LedgerOf(const void* address) {
    const HMODULE module = ModuleAt(address, GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT);
    const bool isProgram = module == GetModuleHandleW(nullptr);
    Ledgers& ledgers = AllLedgers();
    const RankedLock lock(ledgers.mutex);
    for (ModuleLedger& ledger : ledgers.all) {
        if (ledger.Module() == module) {
            return ledger;
        }
    }
    return ledgers.all.emplace_back(module, isProgram);
}

bool ModuleLedger::PinOnceMore() noexcept {
    std::size_t pins = m_pins;
    while (pins != 0) {
        if (m_pins.compare_exchange_weak(pins, pins + 1)) {
            return true;
        }
    }
    return false;
}

void ModuleLedger::Pin(const void* address) {
    if (m_isProgram || PinOnceMore()) {
        return;
    }
    HMODULE fresh = ModuleAt(address, 0);
    {
        const RankedLock lock(m_mutex);
        if (m_pinned == nullptr) {
            m_pinned = std::exchange(fresh, nullptr);
        }
        ++m_pins;
    }
    if (fresh != nullptr) {
        FreeLibrary(fresh);  // another thread was first
    }
}

void ModuleLedger::Unpin() noexcept {
    if (m_isProgram) {
        return;
    }
    std::size_t pins = m_pins;
    while (pins > 1) {
        if (m_pins.compare_exchange_weak(pins, pins - 1)) {
            return;
        }
    }
    HMODULE released = nullptr;
    {
        const RankedLock lock(m_mutex);
        if (--m_pins == 0) {
            released = std::exchange(m_pinned, nullptr);
        }
    }
    if (released != nullptr) {
        FreeLibrary(released);
    }
}

void ModuleLedger::BeginLeave() noexcept {
    if (!m_isProgram) {
        const RankedLock lock(m_mutex);
        ++m_leaving;
    }
}

void ModuleLedger::EndLeave() noexcept {
    if (m_isProgram) {
        return;
    }
    const RankedLock lock(m_mutex);
    if (--m_leaving == 0) {
        m_allLeft.notify_all();
    }
}

void ModuleLedger::AwaitLeaving() {
    RankedLock lock(m_mutex);
    while (m_leaving != 0) {
        m_allLeft.wait(lock);
    }
}

}  // namespace Orvane::Internal
