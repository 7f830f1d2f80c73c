#include "concurrency/lifetime/initialization_state.h"

#include "concurrency/errors/exceptions.h"

namespace Orvane::Internal {

constinit InitializationState g_initializationState;

RankedMutex<std::recursive_mutex, LockRank::Lifetime>& LifetimeMutex() {
    static RankedMutex<std::recursive_mutex, LockRank::Lifetime> mutex;
    return mutex;
}

namespace {

// Where a mutex takes memory, this one has it when the library is loaded.
[[maybe_unused]] const auto& g_lifetimeMutex = LifetimeMutex();

}  // namespace

}  // namespace Orvane::Internal
