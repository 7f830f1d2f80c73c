// What the handles of one task share.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "concurrency/base/ranked_mutex.h"
#include "concurrency/tasks/itask_state.h"
#include "concurrency/tasks/latest_run.h"
#include "concurrency/tasks/run_counts.h"
#include "concurrency/tasks/tracked_tasks.h"

namespace Orvane::Internal {

class FutureState;

class TaskImpl {
  public:
    enum class Listed : bool { No, Yes };

    TaskImpl(const wchar_t* name, std::shared_ptr<ITaskState> wrapper, Listed listed = Listed::Yes);
    TaskImpl(const TaskImpl&) = delete;
    TaskImpl& operator=(const TaskImpl&) = delete;

    void Run();
    void Cancel();
    const wchar_t* GetName() const;
    std::shared_ptr<ITaskState> GetWrapper() const;
    bool IsBusy() const;
    bool IsCancelled() const;
    void Reset();
    void Wait();
    void EndRun();

    // It is about to be queued.
    void NoteQueued(std::uint64_t tick) noexcept { m_title.queuedAt.store(tick, std::memory_order_relaxed); }

    // `self` is the task's own pointer. Once for all.
    void Track(const std::weak_ptr<TaskImpl>& self);

  private:
    class RunScope;

    void TraceRequest() const noexcept;
    bool IsEmptied() const ORVANE_REQUIRES(m_mutex);
    bool IsCancelledLocked() const ORVANE_REQUIRES(m_mutex);
    std::shared_ptr<ITaskState> BeginRun(std::shared_ptr<FutureState>& future);
    std::shared_ptr<ITaskState> EmptyUnlessRunning(const std::shared_ptr<ITaskState>& awaited);

    mutable RankedMutex<std::recursive_mutex, LockRank::Task> m_mutex;  // taken before the future's mutex
    RunTitle m_title;
    std::shared_ptr<ITaskState> m_wrapper ORVANE_GUARDED_BY(m_mutex);  // never empty
    const Listed m_listed;
    std::atomic<bool> m_isTracked = false;
    bool m_cancelled ORVANE_GUARDED_BY(m_mutex) = false;  // never cleared
    LatestRun m_latestRun ORVANE_GUARDED_BY(m_mutex);
    std::unique_ptr<TrackedTask> m_tracked ORVANE_GUARDED_BY(m_mutex);  // null unless a tracker holds it
};

}  // namespace Orvane::Internal
