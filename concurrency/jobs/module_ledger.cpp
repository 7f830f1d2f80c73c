#include "concurrency/jobs/module_ledger.h"

#include <algorithm>
#include <list>
#include <system_error>
#include <typeinfo>
#include <vector>

#if __has_include(<cxxabi.h>)
#include <cxxabi.h>
#endif

#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/thread_time.h"
#include "concurrency/jobs/job_future.h"

namespace Orvane::Internal {

namespace {

struct Ledgers {
    RankedMutex<RecursiveMutex, LockRank::Leaf> mutex;
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

// Here the library of the runtime says of which type the exception is.
#if __has_include(<cxxabi.h>)
ModuleLedger& LedgerOfException(ModuleLedger& otherwise) noexcept {
    try {
        const std::type_info* const type = abi::__cxa_current_exception_type();
        return type != nullptr ? LedgerOf(type) : otherwise;
    } catch (const std::exception&) {
        return otherwise;
    }
}
#else
ModuleLedger& LedgerOfException(ModuleLedger& otherwise) noexcept {
    return otherwise;
}
#endif

bool ModuleLedger::IsClear() const noexcept {
    return std::all_of(m_counts.begin(), m_counts.end(), [](const auto& count) { return count == 0; });
}

bool ModuleLedger::PinOnceMore() noexcept {
    std::size_t pins = m_counts[Pins];
    while (pins != 0) {
        if (m_counts[Pins].compare_exchange_weak(pins, pins + 1)) {
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
        ++m_counts[Pins];
    }
    if (fresh != nullptr) {
        FreeLibrary(fresh);  // another thread was first
    }
}

void ModuleLedger::Unpin() noexcept {
    if (m_isProgram) {
        return;
    }
    std::size_t pins = m_counts[Pins];
    while (pins > 1) {
        if (m_counts[Pins].compare_exchange_weak(pins, pins - 1)) {
            return;
        }
    }
    HMODULE released = nullptr;
    {
        const RankedLock lock(m_mutex);
        if (--m_counts[Pins] == 0) {
            released = std::exchange(m_pinned, nullptr);
        }
    }
    if (released != nullptr) {
        FreeLibrary(released);
    }
}

void ModuleLedger::BeginDeparture(Departure& departure, const JobFuture& future) noexcept {
    if (!m_isProgram) {
        departure.future = &future;
        departure.since = ThreadNow();
        const RankedLock lock(m_mutex);
        departure.number = ++m_lastNumber;
        m_departures.PushBack(departure);
    }
}

void ModuleLedger::EndDeparture(Departure& departure) noexcept {
    if (!m_isProgram) {
        const RankedLock lock(m_mutex);
        departure.Unlink();
        SignalAll(m_listeners);
    }
}

bool ModuleLedger::IsDepartureOnThisThread() noexcept {
    const RankedLock lock(m_mutex);
    for (const Departure* next = m_departures.Front(); next != nullptr; next = m_departures.Next(*next)) {
        if (next->thread == ::GetCurrentThreadId()) {
            return true;
        }
    }
    return false;
}

// Of those that are there when it is made.
class ModuleLedger::AwaitedDepartures final : public Awaited {
  public:
    explicit AwaitedDepartures(ModuleLedger& ledger) : m_ledger(ledger) {
        const RankedLock lock(ledger.m_mutex);
        m_last = ledger.m_lastNumber;
    }

    bool IsOver() const noexcept override {
        const RankedLock lock(m_ledger.m_mutex);
        return m_ledger.m_departures.IsEmpty() || m_ledger.m_departures.Front()->number > m_last;
    }
    void Attach(JobWaiter& waiter) noexcept override {
        m_listener.waiter = &waiter;
        const RankedLock lock(m_ledger.m_mutex);
        m_ledger.m_listeners.PushBack(m_listener);
    }
    void Detach() noexcept override {
        const RankedLock lock(m_ledger.m_mutex);
        m_listener.Unlink();
    }
    void CollectRunning(std::vector<RunningJob>& running) const override {
        const RankedLock lock(m_ledger.m_mutex);
        for (const Departure* next = m_ledger.m_departures.Front(); next != nullptr && next->number <= m_last;
             next = m_ledger.m_departures.Next(*next)) {
            running.push_back({next->thread, next->future->MakeName(), next->since, true});
        }
    }
    bool IsOfGroup(const void*) const noexcept override { return false; }

  private:
    ModuleLedger& m_ledger;
    std::uint64_t m_last = 0;
    JobListener m_listener;
};

JobWaitResult ModuleLedger::AwaitDepartures() noexcept {
    AwaitedDepartures awaited(*this);
    return WaitToTheEnd(awaited);
}

}  // namespace Orvane::Internal
