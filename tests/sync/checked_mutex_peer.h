// The private fields of a checked_mutex.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "concurrency/sync/checked_mutex.h"

namespace Orvane {

struct CheckedMutexPeer {
    struct Offsets {
        std::size_t mutex, condition, held, locked;
    };
    static Offsets OffsetsOf(const checked_mutex& mutex) {
        return {Offset(mutex, mutex.m_lock.mutex), Offset(mutex, mutex.m_lock.condition),
                Offset(mutex, mutex.m_lock.held), Offset(mutex, mutex.m_locked)};
    }

    static std::uint32_t HeldWordOf(const checked_mutex& mutex) { return mutex.m_lock.held; }
    static_assert(sizeof(checked_mutex::TimedMutex::held) == 4, "the held word has 32 bits");

    // How many sleep. Others may come or go meanwhile, unless the test prevents it.
    static std::uint32_t SleepersOf(checked_mutex& mutex) {
        const std::lock_guard lock(mutex.m_lock.mutex);
        return mutex.m_lock.waiters;
    }

    // Where each thread stands that is about to sleep.
    static auto& InnerMutexOf(checked_mutex& mutex) { return mutex.m_lock.mutex; }

    // Brings those that sleep to look at the mutex and the clock.
    static void WakeSleepersOf(checked_mutex& mutex) { mutex.m_lock.condition.notify_all(); }

  private:
    template <typename Field>
    static std::size_t Offset(const checked_mutex& mutex, const Field& field) {
        return static_cast<std::size_t>(reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&mutex));
    }
};

}  // namespace Orvane
