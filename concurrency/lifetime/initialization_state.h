// How often the library is initialised, and the lock that serialises initialisation and uninitialisation.
#pragma once

#include <cstdint>
#include <mutex>

#include "concurrency/base/ranked_mutex.h"

namespace Orvane::Internal {

// Taken before every other lock of the library. Constructed on first use: other modules' static objects may initialise the
// library.
RankedMutex<std::recursive_mutex, LockRank::Lifetime>& LifetimeMutex();

// Guarded by LifetimeMutex().
struct InitializationState {
    // Initialisations less uninitialisations.
    std::int32_t initCount = 0;

    // While the last uninitialisation is under way: another one within it only counts.
    bool isTearingDown = false;
};

extern InitializationState g_initializationState;

}  // namespace Orvane::Internal
