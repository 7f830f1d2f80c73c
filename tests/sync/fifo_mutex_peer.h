// The private word of a fifo_mutex that nobody waits for, the ways past it, and the line.
#pragma once

#include <cstddef>
#include <cstdint>

#include "concurrency/sync/fifo_mutex_wait_queue.h"

namespace Orvane {

struct FifoMutexPeer {
    // The calling thread becomes the owner, with so many levels.
    static void OwnWithLevels(fifo_mutex& mutex, std::uint32_t levels) {
        mutex.m_queue->m_word = fifo_mutex::WaitQueue::Owner(::GetCurrentThreadId(), levels);
    }
    static std::uint32_t LevelsOf(const fifo_mutex& mutex) {
        return fifo_mutex::WaitQueue::LevelsOf(mutex.m_queue->m_word);
    }

    // As for a thread that has found others in line, or another owner, before.
    static bool TryLockInLine(fifo_mutex& mutex) { return mutex.m_queue->TryLockInList(::GetCurrentThreadId()); }
    static bool LockInLine(fifo_mutex& mutex) {
        return mutex.m_queue->LockInList(::GetCurrentThreadId(), nullptr) == Internal::WaitResult::Done;
    }

    // With the line standing still.
    template <typename Action>
    static void UnderTheGuard(fifo_mutex& mutex, Action action) {
        const Internal::RankedLock lock(mutex.m_queue->m_guard);
        action();
    }
    static bool OwnerHasComeIn(fifo_mutex& mutex) ORVANE_NO_THREAD_SAFETY_ANALYSIS {
        return mutex.m_queue->m_ownerHasComeIn;
    }

    // Entries of the list: of the owner, one for each level, and of those that wait.
    static std::size_t LengthOf(const fifo_mutex& mutex) ORVANE_NO_THREAD_SAFETY_ANALYSIS {
        return mutex.m_queue->m_entries.size();
    }

    static DWORD OwnerOf(const fifo_mutex& mutex) { return fifo_mutex::WaitQueue::OwnerOf(mutex.m_queue->m_word); }
};

}  // namespace Orvane
