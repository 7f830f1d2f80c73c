// A recurrent task as Schedule() makes one, whose handle the test keeps: a tracker does not say when the pool is done with
// a run, and until then the next one would be skipped.
//
// Threads: the members belong to the test's thread.
// Lifetime: the destructor cancels the task and waits until the pool is done with it, tail and all.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/tracker_impl.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"

namespace Zarvo::Test {

class TrackedTask {
  public:
    // `tail` is called by each run when it has reset the task.
    TrackedTask(
        const wchar_t* name, Orvane::TimePoint start, Orvane::Duration interval, std::function<void()> work,
        std::function<void()> tail = [] {})
        : m_task(Orvane::MakeTask(name, [this, work, tail] {
              m_tracker.UpdateWrapper(work);
              tail();
          })) {
        const Orvane::Internal::ScheduledTask scheduled(m_task, start, interval);
        m_tracker.SetTask(scheduled);
        Orvane::Internal::GlobalScheduler::Insert(scheduled);
    }
    ~TrackedTask() {
        m_tracker.Cancel();
        EXPECT_TRUE(Eventually([this] { return IsIdle(); }));
    }
    TrackedTask(const TrackedTask&) = delete;
    TrackedTask& operator=(const TrackedTask&) = delete;

    const Orvane::Internal::Task& Handle() const { return m_task; }

    // Whether its next turn would be a run.
    bool IsIdle() const { return !m_task.IsBusy() && !Orvane::Internal::GlobalThreadPool::IsPresent(m_task); }

  private:
    Orvane::Internal::Task m_task;
    Orvane::Internal::TrackerImpl m_tracker;
};

}  // namespace Zarvo::Test
