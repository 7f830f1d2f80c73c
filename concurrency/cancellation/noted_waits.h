// The cancellable waits for operations of the library that wait in them: the run's note names the operation.
//
// Threads, Cancellation, Errors, Units: as cancellable_waits.h.
#pragma once

#include "concurrency/base/win32.h"
#include "concurrency/cancellation/waiting_run.h"

namespace Orvane::Internal {

void SleepNoted(WaitKind kind, DWORD milliseconds);
DWORD WaitNoted(WaitKind kind, HANDLE handle, DWORD milliseconds);

}  // namespace Orvane::Internal
