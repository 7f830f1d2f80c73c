// The private fields of an interprocess_mutex.
#pragma once

#include <cstddef>

#include "concurrency/sync/interprocess_mutex.h"

namespace Orvane {

struct InterprocessMutexPeer {
    struct Offsets {
        std::size_t handle, locked, owner;
    };
    static Offsets OffsetsOf(const interprocess_mutex& mutex) {
        return {Offset(mutex, mutex.m_handle), Offset(mutex, mutex.m_locked), Offset(mutex, mutex.m_owner)};
    }

    static bool IsMarkedLocked(const interprocess_mutex& mutex) { return mutex.m_locked; }
    static DWORD OwnerOf(const interprocess_mutex& mutex) { return mutex.m_owner; }

  private:
    template <typename Field>
    static std::size_t Offset(const interprocess_mutex& mutex, const Field& field) {
        return static_cast<std::size_t>(reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&mutex));
    }
};

}  // namespace Orvane
