// The records of the threads that a pool has started and not yet joined: its workers, and the dedicated threads whose task
// has not returned.
//
// Threads: any. Errors: std::system_error if the lock fails, or a join.
#pragma once

#include <list>

#include "concurrency/base/mutex.h"
#include "concurrency/base/native_thread.h"
#include "concurrency/base/ranked_mutex.h"

namespace Orvane::Internal {

struct PoolThreadsPeer;

class PoolThreads {
  public:
    using Records = std::list<NativeThread>;

    PoolThreads() = default;
    PoolThreads(const PoolThreads&) = delete;
    PoolThreads& operator=(const PoolThreads&) = delete;

    // Takes over the records.
    void Add(Records& started);

    // Moves a record out, to the end of `records`. Nothing once the pool stops: shutdown goes through all that are here.
    void MoveUnlessStopping(Records::iterator record, Records& records);

    bool HasCurrentThread() const;

    void Stop();

    // Joins every thread. Those who end meanwhile take the pool's locks, and a growth may still add records: so one record
    // at a time, and without the lock.
    void JoinAll();

  private:
    friend struct PoolThreadsPeer;

    mutable RankedMutex<RecursiveMutex, LockRank::Pool> m_mutex;
    Records m_threads ORVANE_GUARDED_BY(m_mutex);
    bool m_stopping ORVANE_GUARDED_BY(m_mutex) = false;
};

}  // namespace Orvane::Internal
