// Where jobs and the runners of groups are started: on the global pool and on threads of their own, or in the virtual time of the
// thread that starts them.
//
// Threads: any. Errors: as global_pool_queue.h says.
#pragma once

#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

enum class LaunchOn {
    Pool,  // waits where GlobalThreadPool::Queue() does
    PoolIfItHasRoom,  // does nothing and returns false if that needs a growth
    NewThread,
};

bool Launch(const Task& task, LaunchOn where);

}  // namespace Orvane::Internal
