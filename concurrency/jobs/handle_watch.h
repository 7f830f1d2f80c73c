// Asks jobs to leave when a handle is signalled. Threads of the room's own, each for up to 62 handles, which need no worker of the
// pool. One starts when there is a handle for which the others have no room, and leaves when it has had none for a while.
//
// Threads: any.
#pragma once

#include <list>
#include <memory>

#include "concurrency/base/win32.h"
#include "concurrency/jobs/cancellable.h"

namespace Orvane::Internal {

class HandleWatch;

// Those of one job or group.
using HandleWatches = std::list<std::shared_ptr<HandleWatch>>;

// Asks `target` with CancelCause::Signalled when the handle is signalled, at once if it is. Returns the watch, in a list so that
// it can be kept without memory. The handle is duplicated.
//
// Errors: std::invalid_argument for a mutex; std::system_error if the handle cannot be duplicated or waited for, or if a thread or
//     an event cannot be had; std::bad_alloc. Nothing is watched then.
HandleWatches WatchHandle(HANDLE handle, std::weak_ptr<Cancellable> target);

// Waits for nothing. A request that is under way may still come.
void RemoveHandleWatches(const HandleWatches& watches) noexcept;

// Ends the threads and all watches. A later watch starts them again.
void StopHandleWatches() noexcept;

}  // namespace Orvane::Internal
