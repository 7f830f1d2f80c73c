// The task that the calling thread runs now, and the questions a task asks about itself.
//
// Threads: each call is about the calling thread's own task.
// Cancellation: CancellationPoint() throws; nothing else here does.
// Errors: on a thread that runs no task the getters return empty pointers, IsCancellationRequested() returns false and
//     CancellationPoint() returns. std::system_error if a mutex fails; std::bad_alloc from ResetFutureObject().
//     Each call clears the thread's last error, because it reads a thread-local slot (TlsGetValue). Call GetLastError()
//     first.
// Memory: everything before Task::Cancel() is visible once IsCancellationRequested() has returned true for it.
#pragma once

#include <memory>

#include "concurrency/base/export.h"

namespace Orvane {

// Whether cancellation of the task that this thread runs was requested.
ORVANE_CONCURRENCY_API bool IsCancellationRequested();

// Throws CancelRequestedException if cancellation was requested.
ORVANE_CONCURRENCY_API void CancellationPoint();

namespace Internal {

class CancellationObject;
class FutureState;

// The future of the task that this thread runs, also inside a scope of jobs/within.h; empty if there is none or it has expired.
ORVANE_CONCURRENCY_API std::shared_ptr<FutureState> GetFutureObject();

// Not for callers.
//
// Makes `future` the thread's current one and returns the one before it. An empty or expired pointer leaves the thread
// without a current task. Held weakly.
ORVANE_CONCURRENCY_API std::weak_ptr<FutureState> ResetFutureObject(std::weak_ptr<FutureState> future);

// The same at the end of a run, for what was there before it. If that fails, the process ends.
ORVANE_CONCURRENCY_API void RestoreFutureObject(std::weak_ptr<FutureState> future) noexcept;

// The cancellation record of the run that this thread is in, in a scope of jobs/within.h that of the scope; empty if there is
// none.
ORVANE_CONCURRENCY_API std::shared_ptr<CancellationObject> GetCancellationObject();

}  // namespace Internal
}  // namespace Orvane
