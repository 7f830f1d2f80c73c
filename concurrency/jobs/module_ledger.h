// What this room holds of one module: code that it may still call, and objects that only the module's code can destroy. A
// module of which nothing is held can be unloaded.
//
// Each count sinks after the module's code has returned, so a count of 0 says that no thread of this room is in it.
//
// Threads: any.
// Memory: who reads a count of 0 sees all that the held code did before.
// Lifetime: until the process ends. A module that is loaded where another one was gets the same ledger.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/intrusive_list.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job_name.h"
#include "concurrency/jobs/job_wait.h"
#include "concurrency/jobs/this_module.h"

namespace Orvane::Internal {

class JobFuture;
struct DepartureTag;

// A thread that has published the end of a job, and has not left what is of the job's module yet. On its own stack.
struct Departure : ListHook<DepartureTag> {
    const DWORD thread = ::GetCurrentThreadId();
    std::shared_ptr<const JobName> name;  // of the job, if it is of a group
    const JobFuture* future = nullptr;  // of the job, if it is of none
    MonotonicClock::time_point since;  // the end of the job
    std::uint64_t number = 0;
};

class ModuleLedger {
  public:
    // `module` is loaded now. Of the program itself nothing is counted or pinned: it stays.
    ModuleLedger(HMODULE module, bool isProgram) : m_module(module), m_isProgram(isProgram) {}
    ModuleLedger(const ModuleLedger&) = delete;
    ModuleLedger& operator=(const ModuleLedger&) = delete;

    HMODULE Module() const noexcept { return m_module; }

    enum Kind : std::size_t {
        Callables,  // with their arguments
        Results,
        Failures,  // exceptions that jobs and groups keep, each as often as it is kept
        Schedules,
        Pins,  // jobs without a group
        Kinds,
    };

    void Add(Kind kind) noexcept {
        if (!m_isProgram) {
            ++m_counts[kind];
        }
    }
    void Subtract(Kind kind) noexcept {
        if (!m_isProgram) {
            --m_counts[kind];
        }
    }
    std::size_t Count(Kind kind) const noexcept { return m_counts[kind]; }
    bool IsClear() const noexcept;

    // Keep the module loaded from Pin() to Unpin(), as often as they are called. `address` is in the module. Unpin() may unload
    // it, which runs its code: call it without a lock, and last.
    // Errors of Pin(): std::system_error if the platform refuses; nothing is changed then.
    void Pin(const void* address);
    void Unpin() noexcept;

    // The thread ends a job of the module that has no group. It unpins the module, or leaves that to the job's handle, in between.
    void BeginDeparture(Departure& departure, const JobFuture& future) noexcept;
    void EndDeparture(Departure& departure) noexcept;
    bool IsDepartureOnThisThread() noexcept;

    // Until the threads have left that depart now. Not on one of them.
    JobWaitResult AwaitDepartures() noexcept;

  private:
    class AwaitedDepartures;

    using Mutex = RankedMutex<RecursiveMutex, LockRank::Job>;

    bool PinOnceMore() noexcept;

    const HMODULE m_module;
    const bool m_isProgram;
    std::array<std::atomic<std::size_t>, Kinds> m_counts{};  // Pins becomes 0, or more than that, under m_mutex

    // The platform is asked without this mutex: it takes the loader's lock, under which other threads pin.
    Mutex m_mutex;
    HMODULE m_pinned ORVANE_GUARDED_BY(m_mutex) = nullptr;
    IntrusiveList<Departure, DepartureTag> m_departures ORVANE_GUARDED_BY(m_mutex);  // the oldest first
    std::uint64_t m_lastNumber ORVANE_GUARDED_BY(m_mutex) = 0;
    JobListeners m_listeners ORVANE_GUARDED_BY(m_mutex);  // of those that wait for departures
};

// In a catch block: of the module that the type of the exception is of, whose code destroys it. `otherwise` if that cannot be said.
ModuleLedger& LedgerOfException(ModuleLedger& otherwise) noexcept;

// An exception that is kept, and counted for the module that destroys it.
class HeldError {
  public:
    HeldError() noexcept = default;
    HeldError(const std::exception_ptr& error, ModuleLedger& module) noexcept : m_module(&module) { Keep(error); }
    HeldError(const HeldError& other) noexcept : m_module(other.m_module) { Keep(other.m_error); }
    HeldError(HeldError&& other) noexcept : m_error(std::exchange(other.m_error, nullptr)), m_module(other.m_module) {}
    HeldError& operator=(HeldError other) noexcept {
        std::swap(m_error, other.m_error);
        std::swap(m_module, other.m_module);
        return *this;
    }
    ~HeldError() { Drop(); }

    // Of an exception that is counted already.
    static HeldError Counted(std::exception_ptr error, ModuleLedger& module) noexcept {
        HeldError held;
        held.m_error = std::move(error);
        held.m_module = &module;
        return held;
    }

    explicit operator bool() const noexcept { return m_error != nullptr; }
    const std::exception_ptr& Get() const noexcept { return m_error; }
    bool IsOf(const ModuleLedger& module) const noexcept { return m_error && m_module == &module; }

    void Drop() noexcept {
        if (m_error) {
            m_error = nullptr;
            m_module->Subtract(ModuleLedger::Failures);
        }
    }

  private:
    void Keep(const std::exception_ptr& error) noexcept {
        if (error) {
            m_module->Add(ModuleLedger::Failures);
            m_error = error;
        }
    }

    std::exception_ptr m_error;
    ModuleLedger* m_module = nullptr;
};

}  // namespace Orvane::Internal
