#pragma once

#include "concurrency/base/export.h"

namespace Orvane {

// Marks the code during which a task accepts being killed instead of answering a cancellation request. The library only
// keeps the mark (CancellationObject::GetKillable), for a watchdog of the program's own: it kills no thread, and a
// cancelled run has the same 30 s.
//
// Threads: create and destroy it on a thread that runs a task.
// Recursion: markers do not nest: the inner one's end ends the outer one's effect.
// Cancellation: no cancellation points.
// Errors: undefined on a thread that runs no task. On purpose: no check, which would hide the caller's mistake.
// Memory: it orders nothing.
// Lifetime: nothing is kept; both ends look the current task up anew.
class ORVANE_CONCURRENCY_API KillableTaskMarker {
  public:
    // Sets the mark.
    KillableTaskMarker();

    // Takes the mark away.
    ~KillableTaskMarker();
    KillableTaskMarker(const KillableTaskMarker&) = delete;
    KillableTaskMarker& operator=(const KillableTaskMarker&) = delete;
};

}  // namespace Orvane
