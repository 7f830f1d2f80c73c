// The private word of a fifo_mutex that nobody waits for.
#pragma once

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
    static DWORD OwnerOf(const fifo_mutex& mutex) { return fifo_mutex::WaitQueue::OwnerOf(mutex.m_queue->m_word); }
};

}  // namespace Orvane
