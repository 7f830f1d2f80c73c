// The Win32 waits of the same names, as cancellation points.
//
// Threads: any. On a thread that runs no task they do what the Win32 calls do, but for the limits named below.
//     They pump no messages, nor does any other wait of the library: a window or STA thread that waits for a task which
//     calls back into that thread hangs.
// Cancellation: all three throw CancelRequestedException when cancellation of the calling thread's task was requested
//     before or during the wait, even with a time-out of 0. While they wait, they take the place of any notifier that
//     the task had registered, and they do not restore it.
// Memory: a wait that the handle has ended orders what the platform's does. Everything before Task::Cancel() is visible once
//     a wait has thrown because of it.
// Errors: std::bad_alloc, std::system_error. The platform's failures are returned as WAIT_FAILED, with the error left
//     for GetLastError().
// Units: milliseconds; INFINITE (0xFFFFFFFF) for no limit. This name and those of the results are in <windows.h>.
#pragma once

#include "concurrency/base/export.h"
#include "concurrency/base/win32.h"

namespace Orvane {

// Sleeps once: at most ten days, or until cancelled for INFINITE. May, rarely, end early; loop where that matters.
ORVANE_CONCURRENCY_API void CancellableSleep(DWORD milliseconds);

// Waits for the handle, as WaitForSingleObject: returns 0, 0x80 (abandoned mutex, now owned), WAIT_TIMEOUT or
// WAIT_FAILED.
ORVANE_CONCURRENCY_API DWORD CancellableWaitForSingleObject(HANDLE handle, DWORD milliseconds);

// Waits for any of at most 63 handles, as WaitForMultipleObjects. With more, the platform refuses: WAIT_FAILED. The
// lowest signalled index wins; results refer to the caller's positions. With no handles it waits for the
// time-out.
ORVANE_CONCURRENCY_API DWORD CancellableWaitForMultipleObjects(DWORD count, const HANDLE* handles, DWORD milliseconds);

}  // namespace Orvane
