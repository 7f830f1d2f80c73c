// Says that a task took longer than its interval.
//
// Report() runs as a task on the pool, which may outlive the scheduler: so its state is shared, not the scheduler's.
#pragma once

#include <atomic>
#include <memory>

#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/scheduler/scheduler_configuration.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

// Set to 1 by an overrun in assert mode 1. On purpose: the library neither reads nor clears it; it is there for a
// debugger.
extern std::atomic<unsigned char> g_IntervalExceeded;

class DelayReport : public std::enable_shared_from_this<DelayReport> {
  public:
    void ReadConfiguration();

    // The task "Report delay" about a task of this name.
    Task MakeReportTask(const wchar_t* overrunningTask);

  private:
    void Report(const wchar_t* overrunningTask);

    RankedMutex<RecursiveMutex, LockRank::Leaf> m_lock;
    SchedulerConfiguration m_configuration ORVANE_GUARDED_BY(m_lock);
};

}  // namespace Orvane::Internal
