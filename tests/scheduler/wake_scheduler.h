// Makes the scheduler look at its queue and its clock again: only an insert that is the earliest wakes it.
#pragma once

#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"

namespace Zarvo::Test {

// By a task that is handed over first, and does nothing.
inline void WakeScheduler() {
    Orvane::Internal::GlobalScheduler::Insert(
        Orvane::Internal::ScheduledTask(Orvane::MakeTask(L"wake up", [] {}), Orvane::TimePoint::min(), kOnce));
}

}  // namespace Zarvo::Test
