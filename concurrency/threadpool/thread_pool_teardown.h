// The one pool of the process: created on first use by the facade, destroyed by the library's teardown.
#pragma once

#include "concurrency/errors/critical_section.h"

namespace Orvane::Internal {

// Serialises creation and destruction of the pool. Constructed on first use.
CriticalSection& ThreadPoolLock();

// After a failed growth, callers of the pool no longer wait and no further growth is tried, until DestroyThreadPool().
// Called before threads are stopped that may be inside Queue().
void GiveUpFailedGrowth() noexcept;

// Stops and destroys the pool, if there is one. A failed shutdown ends the process.
void DestroyThreadPool() noexcept;

// The library is initialised again.
void AllowThreadPool() noexcept;

}  // namespace Orvane::Internal
