// The wait queue of a fifo_mutex: its owner and the threads that wait.
//
// While no thread waits, one atomic word says who owns the mutex and how often; guard and list are not touched. The first
// thread that must wait moves the owner from the word into the list. When the list has become empty, the word is in force
// again. So no thread finds a free word and overtakes a waiter.
//
// What happens without waiting is here, to be compiled into the mutex as a whole; waiting is in the source.
//
// Threads: any. Errors: std::bad_alloc or std::length_error if the queue cannot grow.
// Lifetime: owned through std::shared_ptr: by the mutex, and by a thread that still wakes waiters when the mutex is gone.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>

#include "concurrency/base/condition.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/wait_protocol.h"
#include "concurrency/sync/fifo_mutex.h"

namespace Orvane {

struct FifoMutexPeer;

class fifo_mutex::WaitQueue : public std::enable_shared_from_this<WaitQueue> {
  public:
    // Of the mutex, whose address says in notes what is waited for.
    explicit WaitQueue(const fifo_mutex* mutex) : m_mutex(mutex) {}

    bool TryLock() {
        const DWORD self = ::GetCurrentThreadId();
        std::uint64_t word = 0;
        if (TakeWord(self, word)) {
            return true;
        }
        return word == kInList && TryLockInList(self);
    }

    // Done: the caller owns the mutex. Otherwise it has left the queue. Null `deadline`: without limit.
    Internal::WaitResult LockUntil(const TimePoint* deadline) {
        const DWORD self = ::GetCurrentThreadId();
        std::uint64_t word = 0;
        return TakeWord(self, word) ? Internal::WaitResult::Done : LockInList(self, deadline);
    }

    void Unlock() {
        std::uint64_t word = m_word.load(std::memory_order_relaxed);
        while (word != kInList) {
            const std::uint64_t left = LevelsOf(word) > 1 ? word - 1 : kFree;
            if (m_word.compare_exchange_weak(word, left)) {
                return;
            }
        }
        UnlockInList();
    }

  private:
    friend struct FifoMutexPeer;

    using Entries = std::list<DWORD>;
    using GuardMutex = Internal::RankedMutex<Internal::RecursiveMutex, Internal::LockRank::Waiter>;
    using Lock = Internal::RankedLock<GuardMutex>;

    // The word: the owner's id in its upper half, its levels in the lower.
    static constexpr std::uint64_t kFree = 0;
    static constexpr std::uint32_t kMostLevels = 0xFFFFFFFF;
    static constexpr std::uint64_t kInList = 1;  // no thread's: the list says it
    static constexpr std::uint64_t Owner(DWORD id, std::uint64_t levels) { return std::uint64_t{id} << 32 | levels; }
    static constexpr DWORD OwnerOf(std::uint64_t word) { return static_cast<DWORD>(word >> 32); }
    static constexpr std::uint32_t LevelsOf(std::uint64_t word) { return static_cast<std::uint32_t>(word); }

    // One more would count as another owner.
    static std::uint64_t OneLevelMore(std::uint64_t word) {
        if (LevelsOf(word) == kMostLevels) {
            ThrowTooLong();
        }
        return word + 1;
    }
    [[noreturn]] static void ThrowTooLong();

    // Takes the mutex, or one level more of it, if the word is in force. `word` is what was found, or kFree to begin with.
    bool TakeWord(DWORD self, std::uint64_t& word) {
        while (word == kFree || OwnerOf(word) == self) {
            const std::uint64_t taken = word == kFree ? Owner(self, 1) : OneLevelMore(word);
            if (m_word.compare_exchange_weak(word, taken)) {
                return true;
            }
        }
        return false;
    }

    bool TryLockInList(DWORD self);
    Internal::WaitResult LockInList(DWORD self, const TimePoint* deadline);
    void UnlockInList();

    bool TakeWordOrMoveIt(DWORD self) ORVANE_REQUIRES(m_guard);
    bool TakeLevelIfOwner(DWORD self) ORVANE_REQUIRES(m_guard);
    void Remove(Entries::iterator entry) ORVANE_REQUIRES(m_guard);
    Internal::WaitResult WaitForTurn(Lock& lock, DWORD self, const TimePoint* deadline) ORVANE_REQUIRES(m_guard);
    bool Sleep(Lock& lock, const TimePoint* deadline) ORVANE_NO_THREAD_SAFETY_ANALYSIS;

    const fifo_mutex* const m_mutex;

    GuardMutex m_guard;  // held briefly, never while the caller owns the mutex
    Internal::Condition m_wake;  // with m_guard: an owner has left

    std::atomic<std::uint64_t> m_word = kFree;  // leaves and becomes kInList under m_guard

    // Thread ids. Back: the owner, one entry per level. Front: the newest waiter. Empty: the word is in force.
    Entries m_entries ORVANE_GUARDED_BY(m_guard);

    // Whether the thread at the back has returned from its lock(). It unlocks one day and wakes everybody then. A next owner
    // that is still waiting may time out or be cancelled instead, and then wakes no thread.
    bool m_ownerHasComeIn ORVANE_GUARDED_BY(m_guard) = false;
};

}  // namespace Orvane
