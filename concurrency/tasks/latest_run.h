// The run of a task that was begun last, as long as it has not returned.
//
// Why: Reset(), and a task that cancels itself, put another state in the place of the one that runs, so the task no longer
// knows its run. A Tracker's end must wait for that run all the same, because its callable may use what dies with the
// Tracker. And Wait() must not empty a task whose new state has been taken by a thread but has not started.
//
//   remembers   becomes so by                                    means
//   ---------   ----------------------------------------------   ---------------------------------------------------
//   nothing     construction; End() of the run it remembers      no run, or only one that a later run has overtaken
//   a run       Begin(), which replaces the one before           taken by a thread; its future may be in every state:
//                                                                not started yet, under way, or final and returning
//
// Only TaskImpl::Run() calls Begin() and End(), on the thread that runs, in pairs, whatever way the run ends. Runs overlap if
// a task is reset and run again while its run is under way; the end of the older one changes nothing then.
//
// Held weakly, and let go at the end: the caller's module made the state, its count included, and may be unloaded while
// a handle lives.
//
// Threads: every member needs the task's mutex, but for IsUnderWayElsewhere(). Release what Get() returns without it.
#pragma once

#include <memory>

#include "concurrency/tasks/itask_state.h"

namespace Orvane::Internal {

class LatestRun {
  public:
    void Begin(const std::shared_ptr<ITaskState>& state) noexcept { m_state = state; }
    void End(const std::shared_ptr<ITaskState>& state) noexcept;

    // Empty if it remembers nothing.
    std::shared_ptr<ITaskState> Get() const noexcept { return m_state.lock(); }

    // Whether the state is to be waited for by the calling thread: its future is not final, and its run is not the calling
    // thread's own. False for an empty pointer.
    static bool IsUnderWayElsewhere(const std::shared_ptr<ITaskState>& state);

  private:
    std::weak_ptr<ITaskState> m_state;
};

}  // namespace Orvane::Internal
