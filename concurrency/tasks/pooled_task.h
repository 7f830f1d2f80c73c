// A task in the hands of a pool: queued or running there. The task counts them, so that nobody needs to search for it.
//
// Threads: one thread at a time uses an entry; IsIn() on any.
// Lifetime: keeps the task alive. Its end may destroy the user's callable: not under a lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

class PooledTask {
  public:
    explicit PooledTask(const Task& task);
    ~PooledTask();
    PooledTask(const PooledTask&) = delete;
    PooledTask& operator=(const PooledTask&) = delete;

    Task& Get() { return m_task; }

    // Returns false if the entry is marked already: for who goes through a list that changes meanwhile.
    bool Mark() { return !std::exchange(m_isMarked, true); }

    // From now on, and until its end, the entry counts. Once. Pools are told apart by number, from 1, later ones have
    // higher numbers.
    void Enter(std::uint32_t pool);

    // Whether the pool has an entry for this task. All empty handles are one task. On purpose a task counts for the latest
    // pool that it was given to: one that stands for ever in a stopped pool's queue is not there for its successor.
    static bool IsIn(std::uint32_t pool, const Task& task);

  private:
    static std::atomic<std::uint64_t>& PlaceOf(const Task& task);

    Task m_task;
    std::uint32_t m_pool = 0;
    bool m_isMarked = false;
};

}  // namespace Orvane::Internal
