// Mutexes that know their place in the order of locks, and the one guard for them. For the library's own classes: nothing
// of it is exported.
//
// A thread takes only what comes after all that it holds, or what it holds already (docs/locks.md has the picture). In
// checked builds (ORVANE_CHECK_LOCK_ORDER) every guard looks, and a violation ends the process with both places on
// standard error. Otherwise a guard is a std::unique_lock and nothing more.
//
// Threads: a guard belongs to the thread that constructs it.
// Recursion: as the mutex's.
// Errors: std::system_error if the mutex fails.
#pragma once

#include <mutex>
#include <source_location>

#include "concurrency/base/thread_safety.h"

namespace Orvane::Internal {

// In the order in which they may be taken. Two of one rank are never held together, but for futures: one may pass a
// request on to another.
enum class LockRank {
    Lifetime,
    Creation,
    Launch,
    Spawn,
    Pool,
    ScheduleQueue,
    Task,
    Future,
    Waiter,
    CancellationObject,
    Leaf,
};

template <typename Mutex, LockRank rank>
class ORVANE_CAPABILITY RankedMutex : public Mutex {
  public:
    using Base = Mutex;
    static constexpr LockRank kRank = rank;
};

#ifdef ORVANE_CHECK_LOCK_ORDER

// What one guard has told the check. The guards of a thread form a list, the newest first.
class LockOrderEntry {
  public:
    LockOrderEntry(const void* mutex, LockRank rank, const std::source_location& where);
    ~LockOrderEntry();
    LockOrderEntry(const LockOrderEntry&) = delete;
    LockOrderEntry& operator=(const LockOrderEntry&) = delete;

    // To be told before the mutex is taken, and when it is given back.
    void Taking();
    void GivenBack() { m_held = false; }

  private:
    void Allow(const LockOrderEntry& held) const;

    const void* const m_mutex;
    const LockRank m_rank;
    const std::source_location m_where;
    bool m_held = false;
    LockOrderEntry* const m_older;
};

#else

class LockOrderEntry {
  public:
    LockOrderEntry(const void*, LockRank, const std::source_location&) noexcept {}
    void Taking() noexcept {}
    void GivenBack() noexcept {}
};

#endif

template <typename Mutex>
class ORVANE_SCOPED_CAPABILITY Guard {
  public:
    explicit Guard(Mutex& mutex, const std::source_location& where = std::source_location::current())
        ORVANE_ACQUIRE(mutex)
        : m_order(&mutex, Mutex::kRank, where), m_lock(mutex, std::defer_lock) {
        lock();
    }
    ~Guard() ORVANE_RELEASE() = default;
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

    // As the standard's locks have them, for its conditions.
    void lock() ORVANE_ACQUIRE() {
        m_order.Taking();
        m_lock.lock();
    }
    void unlock() ORVANE_RELEASE() {
        m_lock.unlock();
        m_order.GivenBack();
    }

    // For std::condition_variable, which knows one kind of lock only.
    std::unique_lock<typename Mutex::Base>& Native() { return m_lock; }

  private:
    [[no_unique_address]] LockOrderEntry m_order;
    std::unique_lock<typename Mutex::Base> m_lock;
};

}  // namespace Orvane::Internal
