// What this room holds of one module: code that it may still call, and objects that only the module's code can destroy. A
// module of which nothing is held can be unloaded.
//
// Each count sinks after the module's code has returned, so a count of 0 says that no thread of this room is in it.
//
// Threads: any.
// Memory: who reads a count of 0 sees all that the held code did before.
// Lifetime: until the process ends. A module that is loaded where another one was gets the same ledger.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <utility>

#include "concurrency/base/condition.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/this_module.h"

namespace Orvane::Internal {

class ModuleLedger {
  public:
    ModuleLedger(HMODULE module, bool isProgram) : m_module(module), m_isProgram(isProgram) {}
    ModuleLedger(const ModuleLedger&) = delete;
    ModuleLedger& operator=(const ModuleLedger&) = delete;

    HMODULE Module() const noexcept { return m_module; }

    std::atomic<std::size_t> callables = 0;  // with their arguments
    std::atomic<std::size_t> results = 0;
    std::atomic<std::size_t> failures = 0;  // exceptions that jobs and groups keep, each as often as it is kept
    std::atomic<std::size_t> schedules = 0;

    // Keep the module loaded from Pin() to Unpin(), as often as they are called. Nothing for the program itself. `address` is in
    // the module. Unpin() may unload it, which runs its code: call it without a lock, and last.
    // Errors of Pin(): std::system_error if the platform refuses; nothing is changed then.
    void Pin(const void* address);
    void Unpin() noexcept;
    std::size_t Pins() const noexcept { return m_pins; }

    // Between these two, an ended job of the module that has no handle is about to be destroyed, and unpins the module before
    // the second. AwaitLeaving() returns when there is no such job; no one that calls it may be between the two.
    void BeginLeave() noexcept;
    void EndLeave() noexcept;
    void AwaitLeaving();

    bool IsClear() const noexcept {
        return callables == 0 && results == 0 && failures == 0 && schedules == 0 && m_pins == 0;
    }

  private:
    using Mutex = RankedMutex<std::mutex, LockRank::Leaf>;

    bool PinOnceMore() noexcept;

    const HMODULE m_module;
    const bool m_isProgram;

    // The platform is asked without this mutex: it takes the loader's lock, under which other threads pin.
    Mutex m_mutex;
    std::atomic<std::size_t> m_pins = 0;  // becomes 0, or more than that, under m_mutex
    HMODULE m_pinned ORVANE_GUARDED_BY(m_mutex) = nullptr;
    std::size_t m_leaving ORVANE_GUARDED_BY(m_mutex) = 0;
    Condition m_allLeft;  // with m_mutex: m_leaving is 0
};

// An exception that is kept, and counted for the module whose code threw it: the module destroys it.
class HeldError {
  public:
    HeldError() noexcept = default;
    explicit HeldError(ModuleLedger& module) noexcept : m_module(&module) {}
    HeldError(std::exception_ptr error, ModuleLedger& module) noexcept : m_module(&module) { Keep(std::move(error)); }
    HeldError(const HeldError& other) noexcept : m_module(other.m_module) { Keep(other.m_error); }
    HeldError(HeldError&& other) noexcept
        : m_error(std::exchange(other.m_error, nullptr)), m_module(other.m_module) {}
    HeldError& operator=(HeldError other) noexcept {
        std::swap(m_error, other.m_error);
        std::swap(m_module, other.m_module);
        return *this;
    }
    ~HeldError() { Drop(); }

    explicit operator bool() const noexcept { return m_error != nullptr; }
    const std::exception_ptr& Get() const noexcept { return m_error; }
    ModuleLedger& Module() const noexcept { return *m_module; }

    // In place of none.
    void Keep(std::exception_ptr error) noexcept {
        if (error) {
            ++m_module->failures;
            m_error = std::move(error);
        }
    }

    // Out of here, with its count; leaves none, of the same module.
    HeldError Take() noexcept { return std::move(*this); }

    void Drop() noexcept {
        if (m_error) {
            m_error = nullptr;
            --m_module->failures;
        }
    }

  private:
    std::exception_ptr m_error;
    ModuleLedger* m_module = nullptr;
};

}  // namespace Orvane::Internal
