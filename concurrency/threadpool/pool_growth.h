// When and how a pool adds workers, and who waits for that.
//
//   state      callers of Queue()                    goes to
//   ---------  ------------------------------------  ---------------------------------------------------------------
//   Idle       pass; who finds the pool full asks    UnderWay, by that caller
//              for a growth
//   UnderWay   wait                                  Idle, when the workers exist, or when the caller that asked was
//                                                    cancelled in its pause; Failed, when a thread cannot be started
//   Failed     wait, on purpose; once the last       nothing: the pool never grows again
//              uninitialisation has begun they pass
//
// The state is written under the spawn mutex. A caller that stops the pool lets everybody pass in every state.
//
// A pool looks full while two workers or fewer are spare. Before it grows, the caller lets the workers take what is
// queued, or a burst of short tasks would start threads.
//
// Threads: any.
// Cancellation: Queue() may pause before it asks for a growth, and is a cancellation point then.
// Errors: std::bad_alloc, std::system_error.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>

#include "concurrency/base/clock.h"
#include "concurrency/base/condition.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/win32.h"
#include "concurrency/threadpool/work_queue.h"

namespace Orvane::Internal {

struct PoolGrowthPeer;

inline constexpr std::uint64_t kGrowthBatch = 8;

// What a growth knows of time.
struct GrowthClock {
    DWORD (*tick)();                                  // milliseconds, wrapping, as GetTickCount
    MonotonicClock::time_point (*now)();

    static GrowthClock Real();
};

class PoolGrowth {
  public:
    // Starts `count` workers and counts them, or throws.
    using StartWorkers = std::function<void(std::uint64_t count)>;

    PoolGrowth(WorkQueue& queue, bool growable, StartWorkers startWorkers, const GrowthClock& clock);
    PoolGrowth(const PoolGrowth&) = delete;
    PoolGrowth& operator=(const PoolGrowth&) = delete;

    // Appends the entry, a list of one; grows the pool first if it is full. If it throws, the entry is not queued.
    void Queue(WorkQueue::Entries& entry) { Queue(entry, OnFailure::Wait); }

    // The same, but where a caller of Queue() waits because a growth has failed, this one throws.
    // Errors: also std::system_error (resource_unavailable_try_again).
    void QueueOrFail(WorkQueue::Entries& entry) { Queue(entry, OnFailure::Throw); }

    // Appends the entry if that needs no growth and no wait. Returns false, and leaves the entry, if it does.
    bool TryQueue(WorkQueue::Entries& entry);

    // Adds workers and ends the growth. Errors: std::runtime_error "Failed to spawn thread, resource error".
    void SpawnThreads(std::uint64_t count);

    // Returns when no batch is under way whose threads run and are not on record yet.
    void AwaitBatch();

    // Makes callers look again: the pool stops, or a failure has become final.
    void WakeCallers();

    // Whether no caller waits for a growth that has failed. For the whole process, for pools that are yet to be created, too.
    static void SetFailureIsFinal(bool isFinal) noexcept { s_failureIsFinal = isFinal; }

    // Of all pools since the start of the process: batches that were added because a pool was full, and those that failed.
    static std::uint64_t Growths() noexcept { return s_growths; }
    static std::uint64_t FailedGrowths() noexcept { return s_failedGrowths; }

  private:
    friend struct PoolGrowthPeer;

    enum class State { Idle, UnderWay, Failed };
    enum class OnFailure { Wait, Throw };

    void Queue(WorkQueue::Entries& entry, OnFailure onFailure);
    bool CallersWait(OnFailure onFailure) const noexcept;
    bool AppendOnceSettled(WorkQueue::Entries& entry) ORVANE_REQUIRES(m_mutex);
    bool StaysFull(MonotonicClock::duration waited) const ORVANE_REQUIRES(m_mutex);
    WorkQueue::Entries Begin() ORVANE_REQUIRES(m_mutex);

    static inline constinit std::atomic<bool> s_failureIsFinal = false;
    static inline constinit std::atomic<std::uint64_t> s_growths = 0;
    static inline constinit std::atomic<std::uint64_t> s_failedGrowths = 0;

    WorkQueue& m_queue;
    const bool m_growable;
    const StartWorkers m_startWorkers;
    const GrowthClock m_clock;

    RankedMutex<RecursiveMutex, LockRank::Spawn> m_mutex;  // the spawn mutex
    Condition m_done;  // with m_mutex: callers may pass
    std::atomic<State> m_state = State::Idle;  // written under m_mutex
    DWORD m_lastSpawnTick ORVANE_GUARDED_BY(m_mutex) = 0;

    // How long callers have settled since the last growth.
    MonotonicClock::duration m_settled ORVANE_GUARDED_BY(m_mutex) = MonotonicClock::duration::zero();
};

}  // namespace Orvane::Internal
