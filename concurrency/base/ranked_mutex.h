// A mutex that knows its place in the order of locks, and the one lock type for it. For the library's own classes: nothing
// of it is exported. In a build without the check of lock_order.h, a RankedLock is a std::unique_lock and nothing more.
//
// Not for callers.
//
// Threads: a RankedLock belongs to the thread that constructs it.
// Recursion: as the mutex's.
// Errors: std::system_error if the mutex fails; of a standard recursive mutex also std::bad_alloc from the constructor.
#pragma once

#include <mutex>
#include <new>
#include <source_location>
#include <type_traits>

#include "concurrency/base/lock_order.h"
#include "concurrency/base/thread_safety.h"

#ifdef _MSC_VER
#define ORVANE_NO_UNIQUE_ADDRESS [[msvc::no_unique_address]]  // the standard's does nothing there
#else
#define ORVANE_NO_UNIQUE_ADDRESS [[no_unique_address]]
#endif

namespace Orvane::Internal {

template <typename Mutex, LockRank rank>
class ORVANE_CAPABILITY RankedMutex : public Mutex {
  public:
    using Base = Mutex;
    static constexpr LockRank kRank = rank;
    static constexpr bool kIsStandardRecursive = std::is_same_v<Mutex, std::recursive_mutex>;

#if defined(_WIN32) && defined(__GTHREAD_RECURSIVE_MUTEX_INIT)
    // On purpose: where GCC's library initializes its recursive mutex statically, it has no destructor. In the posix thread
    // model it takes memory at the first lock, an event when two threads want it, and would give neither back. Taken here
    // instead, so that no lock fails for want of memory.
    RankedMutex() {
        if constexpr (kIsStandardRecursive) {
            if (__gthread_recursive_mutex_lock(this->native_handle()) != 0) {
                throw std::bad_alloc();
            }
            __gthread_recursive_mutex_unlock(this->native_handle());
        }
    }
    ~RankedMutex() {
        if constexpr (kIsStandardRecursive) {
            __gthread_recursive_mutex_destroy(this->native_handle());
        }
    }
    RankedMutex(const RankedMutex&) = delete;
    RankedMutex& operator=(const RankedMutex&) = delete;

#endif
};

template <typename Mutex>
class ORVANE_SCOPED_CAPABILITY RankedLock {
  public:
    explicit RankedLock(Mutex& mutex, const std::source_location& where = std::source_location::current())
        ORVANE_ACQUIRE(mutex)
        : m_order(&mutex, Mutex::kRank, where), m_lock(mutex, std::defer_lock) {
        lock();
    }
    ~RankedLock() ORVANE_RELEASE() = default;
    RankedLock(const RankedLock&) = delete;
    RankedLock& operator=(const RankedLock&) = delete;

    // As the standard's locks have them, for conditions.
    void lock() ORVANE_ACQUIRE() {
        m_order.Taking();
        m_lock.lock();
    }
    void unlock() ORVANE_RELEASE() {
        m_lock.unlock();
        m_order.GivenBack();
    }

    // For conditions, which know the mutex behind it.
    std::unique_lock<typename Mutex::Base>& Native() { return m_lock; }

  private:
    ORVANE_NO_UNIQUE_ADDRESS LockOrderEntry m_order;
    std::unique_lock<typename Mutex::Base> m_lock;
};

// Gives a mutex back for a scope and takes it again at the end. `lock` must hold `mutex`, and hold it once.
template <typename Mutex>
class ORVANE_SCOPED_CAPABILITY ReleasedLock {
  public:
    ReleasedLock(RankedLock<Mutex>& lock, Mutex& mutex) ORVANE_RELEASE(mutex) ORVANE_NO_THREAD_SAFETY_ANALYSIS
        : m_lock(lock) {
        static_cast<void>(mutex);  // named for the analysis alone
        m_lock.unlock();
    }
    ~ReleasedLock() ORVANE_RELEASE() ORVANE_NO_THREAD_SAFETY_ANALYSIS { m_lock.lock(); }
    ReleasedLock(const ReleasedLock&) = delete;
    ReleasedLock& operator=(const ReleasedLock&) = delete;

  private:
    RankedLock<Mutex>& m_lock;
};

}  // namespace Orvane::Internal
