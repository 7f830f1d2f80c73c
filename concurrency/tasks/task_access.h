// What the rooms above may do with tasks that callers may not.
//
// Errors: std::bad_alloc, std::system_error.
#pragma once

#include <cstdint>
#include <memory>

#include "concurrency/tasks/itask_state.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

struct TaskAccess {
    // A task whose runs are not listed among the running ones (running_tasks.h): one that carries what another room lists.
    static Task MakeUnlisted(const wchar_t* name, std::shared_ptr<ITaskState> wrapper);

    // The task is about to be queued, or was at this tick of TickCounter: from then on its run waits.
    static void NoteQueued(const Task& task) noexcept;
    static void NoteQueued(const Task& task, std::uint64_t tick) noexcept;

    // From now on CancelTracked() reaches the task.
    static void Track(const Task& task);

    // Cancels every tracked task, the newest first. Needs no memory. Cancels its own run without leaving it.
    static void CancelTracked() noexcept;
};

}  // namespace Orvane::Internal
