// The one scheduler of the process: created on first use by the facade, destroyed by the library's teardown.
#pragma once

#include "concurrency/errors/critical_section.h"

namespace Orvane::Internal {

// Serialises creation and destruction of the scheduler. Constructed on first use.
CriticalSection& SchedulerLock();

// Stops and destroys the scheduler, if there is one. A failed shutdown ends the process.
void DestroyScheduler() noexcept;

}  // namespace Orvane::Internal
