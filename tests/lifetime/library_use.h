// Ways to make the library create what it creates on first use.
#pragma once

#include <chrono>

#include "concurrency/base/time.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/scheduled_task.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"

namespace Zarvo::Test {

inline Orvane::TimePoint TimeFromNow(std::chrono::milliseconds distance) {
    return std::chrono::time_point_cast<Orvane::Duration>(std::chrono::system_clock::now()) + distance;
}

// Runs a task on the pool and waits for it.
inline void UsePool() {
    Orvane::Internal::Task task = Orvane::MakeTask(L"use of the pool", [] {});
    Orvane::Internal::GlobalThreadPool::Queue(task);
    task.Wait();
}

// Runs a task on a thread of its own and waits for it.
inline void UseDedicatedThread() {
    Orvane::Internal::Task task = Orvane::MakeTask(L"use of a thread", [] {});
    Orvane::Internal::GlobalThreadPool::LaunchInNewThread(task);
    task.Wait();
}

// Has the scheduler run a task that is due and waits for it. Uses the pool as well.
inline void UseScheduler() {
    Orvane::Internal::Task task = Orvane::MakeTask(L"use of the scheduler", [] {});
    Orvane::Internal::GlobalScheduler::Insert(
        Orvane::Internal::ScheduledTask(task, TimeFromNow(std::chrono::milliseconds(0)), Orvane::Duration(0)));
    task.Wait();
}

// Creates the scheduler alone: what it is given is due in an hour.
inline void CreateScheduler() {
    Orvane::Internal::Task task = Orvane::MakeTask(L"due in an hour", [] {});
    Orvane::Internal::GlobalScheduler::Insert(
        Orvane::Internal::ScheduledTask(task, TimeFromNow(std::chrono::hours(1)), Orvane::Duration(0)));
}

}  // namespace Zarvo::Test
