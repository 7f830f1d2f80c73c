// The private fields of the mutexes, for tests that judge them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex_wait_queue.h"
#include "concurrency/sync/interprocess_mutex.h"

namespace Orvane {

// Befriended by the mutexes under this name.
struct FieldOrder {
    static HANDLE HandleOf(const interprocess_mutex& mutex) { return mutex.m_handle; }
    static bool IsMarkedLocked(const interprocess_mutex& mutex) { return mutex.m_locked; }
    static DWORD OwnerOf(const interprocess_mutex& mutex) { return mutex.m_owner; }

    struct InterprocessOffsets {
        std::size_t handle, locked, owner;
    };
    static InterprocessOffsets OffsetsOf(const interprocess_mutex& mutex) {
        return {Offset(mutex, mutex.m_handle), Offset(mutex, mutex.m_locked), Offset(mutex, mutex.m_owner)};
    }

    struct CheckedOffsets {
        std::size_t mutex, condition, held, locked;
    };
    static CheckedOffsets OffsetsOf(const checked_mutex& mutex) {
        return {Offset(mutex, mutex.m_lock.mutex), Offset(mutex, mutex.m_lock.condition),
                Offset(mutex, mutex.m_lock.held), Offset(mutex, mutex.m_locked)};
    }

    static std::uint32_t HeldWordOf(const checked_mutex& mutex) { return mutex.m_lock.held; }

    // How many sleep. Others may come or go meanwhile, unless the test prevents it.
    static std::uint32_t SleepersOf(checked_mutex& mutex) {
        const std::lock_guard lock(mutex.m_lock.mutex);
        return mutex.m_lock.waiters;
    }

    // Brings those who sleep to look at the mutex and the clock.
    static void WakeSleepersOf(checked_mutex& mutex) { mutex.m_lock.condition.notify_all(); }

    // The calling thread becomes the owner, with so many levels.
    static void OwnWithLevels(fifo_mutex& mutex, std::uint32_t levels) {
        mutex.m_queue->m_word = fifo_mutex::WaitQueue::Owner(::GetCurrentThreadId(), levels);
    }
    static std::uint32_t LevelsOf(const fifo_mutex& mutex) { return fifo_mutex::WaitQueue::LevelsOf(mutex.m_queue->m_word); }
    static DWORD OwnerOf(const fifo_mutex& mutex) { return fifo_mutex::WaitQueue::OwnerOf(mutex.m_queue->m_word); }

    static_assert(sizeof(checked_mutex::TimedMutex::held) == 4, "the held word has 32 bits");

  private:
    template <typename Object, typename Field>
    static std::size_t Offset(const Object& object, const Field& field) {
        return static_cast<std::size_t>(reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&object));
    }
};

}  // namespace Orvane
