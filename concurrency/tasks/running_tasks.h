// What runs now. Each run has an entry on its own stack, in one of a few lists, chosen by thread. run_list.h describes them to
// debuggers.
//
// Threads: an entry belongs to the thread that runs the task; ForEachRunningTask() on any.
// Errors: std::system_error if a lock fails.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "concurrency/base/adaptive_mutex.h"
#include "concurrency/base/intrusive_list.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/win32.h"
#include "concurrency/tasks/ifuture_state.h"

namespace Orvane::Internal {

struct RunningTag;

// What debuggers read of a run. It stands right behind the entry's links.
struct RunningEntry {
    const wchar_t* name;
    std::uint32_t thread;
    std::uint32_t isTask;  // a job, and what runs a group's jobs, is none: the room of the jobs lists the jobs itself
    std::uint64_t startedAt;  // a tick of CoarseClock
};

class RunningTask : public ListHook<RunningTag> {
  public:
    // The name and the flag must live as long as the entry.
    RunningTask(const wchar_t* name, bool isTask, std::shared_ptr<IFutureState> future,
                const std::atomic<bool>& isTracked);
    ~RunningTask();
    RunningTask(const RunningTask&) = delete;
    RunningTask& operator=(const RunningTask&) = delete;

    const wchar_t* Name() const noexcept { return m_entry.name; }
    bool IsTask() const noexcept { return m_entry.isTask != 0; }
    const std::shared_ptr<IFutureState>& Future() const noexcept { return m_future; }
    bool IsTracked() const noexcept { return m_isTracked; }
    DWORD Thread() const noexcept { return m_entry.thread; }
    std::uint64_t StartedAt() const noexcept { return m_entry.startedAt; }

  private:
    const RunningEntry m_entry;
    const std::shared_ptr<IFutureState> m_future;
    const std::atomic<bool>& m_isTracked;
};

struct RunningTaskShard {
    RankedMutex<AdaptiveMutex, LockRank::Leaf> mutex;
    IntrusiveList<RunningTask, RunningTag> running ORVANE_GUARDED_BY(mutex);
};

std::array<RunningTaskShard, 16>& RunningTaskShards() noexcept;

}  // namespace Orvane::Internal
