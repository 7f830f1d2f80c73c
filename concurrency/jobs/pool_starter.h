// Queues tasks on the global pool that need a growth, so that no caller and no worker waits for it. One thread, which leaves
// when there has been no such task for a while.
//
// Threads: any.
#pragma once

#include <exception>
#include <functional>

#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

// Queues the task. If that fails, calls `failed` on the starter's thread with the reason, without a lock. Nothing more is
// called once CloseStarter() has begun.
//
// Errors: std::bad_alloc; std::system_error if the thread cannot be started; then nothing is queued.
void QueueInBackground(const Task& task, std::function<void(const std::exception_ptr&)> failed);

// Drops what is still to be queued, and takes nothing more.
void CloseStarter() noexcept;

// After the pool has gone: waits until the thread has ended, and takes tasks again.
void JoinStarter() noexcept;

}  // namespace Orvane::Internal
