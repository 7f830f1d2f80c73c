// A stop request that is made by the caller's module.
//
// On purpose inline: a thread that destroys a stop callback waits until the callback has ended. GCC's library keeps that wait in
// a table which each module has for itself, so a request of another module does not wake the thread.
//
// Not for callers.
//
// Threads: any. Errors: none.
#pragma once

#include <stop_token>

#include "concurrency/jobs/this_module.h"

namespace Orvane::Internal {

using StopInModule = void (*)(std::stop_source& source) noexcept;

ORVANE_OF_THIS_MODULE inline void StopInThisModule(std::stop_source& source) noexcept {
    source.request_stop();
}

}  // namespace Orvane::Internal
