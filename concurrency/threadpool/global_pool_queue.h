// Ways into the process's pool for the rooms above that GlobalThreadPool does not offer to callers.
//
// Threads, memory: as GlobalThreadPool.
// Errors: as GlobalThreadPool's. Also Unexpected once the last uninitialisation has destroyed the pool: they make no other one
//     until the library is initialised again.
#pragma once

#include <optional>

#include "concurrency/tasks/task.h"
#include "concurrency/threadpool/work_queue.h"

namespace Orvane::Internal {

// Queues the task; where GlobalThreadPool::Queue() would wait because the pool is full and a growth has failed, it throws.
//
// Errors: also std::system_error (resource_unavailable_try_again).
void QueueOrFail(const Task& task);

// Queues the task if that needs no growth. Returns false, and has done nothing, if it does. Never waits.
bool TryQueue(const Task& task);

// Of the pool, if there is one: makes none.
std::optional<WorkQueue::Load> ReadPool();

// GlobalThreadPool::LaunchInNewThread().
void LaunchForJob(const Task& task);

}  // namespace Orvane::Internal
