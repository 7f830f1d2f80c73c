// The state of every task that has been emptied: one for all, with an owner that is never destroyed.
//
// Threads: any.
// Errors: none. It needs no memory, so emptying a task cannot fail, and it is there until the process has ended.
#pragma once

#include <memory>

#include "concurrency/tasks/itask_state.h"

namespace Orvane::Internal {

const std::shared_ptr<ITaskState>& EmptyTaskState() noexcept;

}  // namespace Orvane::Internal
