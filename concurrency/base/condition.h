// A condition for a RankedLock, whatever mutex it is on. Its members are named as the standard's.
//
// Not for callers.
//
// It is the platform's condition. On a critical section, such as the library's own mutex, it sleeps on the very mutex.
// On a mutex of the standard library that is none, it has an inner lock, which a waiter holds until it sleeps. It needs
// no memory, and timed waits have the resolution of the interface's ticks.
//
// A thread that notifies has changed what is waited for under the mutex, and may have released it since. If no thread
// waits, notifying costs one look at a number.
//
// Threads: any. Errors: the mutex's, where it is locked again.
// Recursion: a wait gives the mutex back once: never wait while holding it twice.
#pragma once

#include <atomic>
#include <chrono>
#include <concepts>
#include <cstdint>

#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/time.h"

#ifndef _WIN32
#include <condition_variable>
#endif

namespace Orvane::Internal {

class Condition {
  public:
    Condition() = default;
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    template <typename Mutex>
    void wait(RankedLock<Mutex>& lock) {
        const Waiter waiter(*this);
        Sleep(lock, nullptr);
    }

    template <typename Mutex, typename Predicate>
    void wait(RankedLock<Mutex>& lock, Predicate ready) ORVANE_NO_THREAD_SAFETY_ANALYSIS {
        while (!ready()) {
            wait(lock);
        }
    }

    // At most a day, see NextSlice(). Any wake-up ends it: a caller that waits for a moment asks the clock again.
    template <typename Mutex, typename Rep, typename Period>
    void wait_for(RankedLock<Mutex>& lock, const std::chrono::duration<Rep, Period>& timeout) {
        const Waiter waiter(*this);
        const auto ticks = std::chrono::ceil<Duration>(timeout);
        Sleep(lock, &ticks);
    }

    void notify_one() noexcept {
        if (HasWaiters()) {
            WakeOne();
        }
    }
    void notify_all() noexcept {
        if (HasWaiters()) {
            WakeAll();
        }
    }

    // Exact while the mutex is held: who waits is counted under it, until it has the mutex again.
    bool HasWaiters() const noexcept { return Waiters() != 0; }
    std::uint32_t Waiters() const noexcept { return m_waiters.load(std::memory_order_relaxed); }

  private:
    class Waiter {
      public:
        explicit Waiter(Condition& condition) : m_condition(condition) { ++m_condition.m_waiters; }
        ~Waiter() { --m_condition.m_waiters; }
        Waiter(const Waiter&) = delete;
        Waiter& operator=(const Waiter&) = delete;

      private:
        Condition& m_condition;
    };

    std::atomic<std::uint32_t> m_waiters = 0;  // written under the mutex

#ifdef _WIN32
    // Null `timeout`: without limit.
    template <typename Mutex>
    void Sleep(RankedLock<Mutex>& lock, const Duration* timeout) {
#ifdef GCC_GTHR_WIN32_H  // the standard's mutexes are critical sections, too
        SleepOn(lock.Native().mutex()->native_handle(), timeout);
#else
        if constexpr (std::derived_from<Mutex, RecursiveMutex>) {
            SleepOn(lock.Native().mutex()->native_handle(), timeout);
        } else {
            // The waiter holds the inner lock from here until it sleeps. A thread that notifies passes through it first,
            // so it cannot come between the two.
            LockInner();
            lock.unlock();
            SleepOnInner(timeout);
            lock.lock();
        }
#endif
    }
    void SleepOn(void* criticalSection, const Duration* timeout) noexcept;
    void WakeOne() noexcept;
    void WakeAll() noexcept;

    void* m_native = nullptr;  // a CONDITION_VARIABLE, which is one pointer

#ifndef GCC_GTHR_WIN32_H
    void LockInner() noexcept;
    void SleepOnInner(const Duration* timeout) noexcept;  // unlocks it
    void PassInner() noexcept;

    void* m_inner = nullptr;  // an SRWLOCK, which is one pointer, too
#endif
#else  // the tests' native build
    template <typename Mutex>
    void Sleep(RankedLock<Mutex>& lock, const Duration* timeout) {
        if (timeout == nullptr) {
            m_standard.wait(lock);
        } else {
            m_standard.wait_for(lock, *timeout);
        }
    }
    void WakeOne() noexcept { m_standard.notify_one(); }
    void WakeAll() noexcept { m_standard.notify_all(); }

    std::condition_variable_any m_standard;
#endif
};

}  // namespace Orvane::Internal
