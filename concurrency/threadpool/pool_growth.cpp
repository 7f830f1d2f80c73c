#include "concurrency/threadpool/pool_growth.h"

#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "concurrency/base/processors.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cloneable_exception.h"
#include "concurrency/cancellation/noted_waits.h"
#include "concurrency/cancellation/wait_protocol.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/tasks/traced_run.h"

namespace Orvane::Internal {

namespace {

// The pool grows when this many workers or fewer are spare.
constexpr std::uint64_t kSpareWorkers = 2;

// At most one growth per this many milliseconds.
constexpr DWORD kGrowthPeriod = 250;

// How long a caller waits for running tasks to end before it believes that the pool is full.
constexpr std::chrono::milliseconds kSettleTime{1};

// The same while tasks stand in the queue and workers are on their way to them, as on a machine with other work.
constexpr std::chrono::milliseconds kLongestSettleTime{20};

// A pool with fewer workers than processors does not settle for longer than this between two growths: tasks of less than
// kSettleTime would keep it at its size for ever.
constexpr std::chrono::milliseconds kSettleTimePerGrowth{2};

// A std::runtime_error for the pool's creator, and cloneable, so that the growth task's future can keep it.
class SpawnError : public std::runtime_error, public virtual CloneableException {
  public:
    // Copies of it share its text, which needs memory: there may be none left when it is thrown.
    static const SpawnError& Original() {
        static const SpawnError original;
        return original;
    }

    std::shared_ptr<CloneableException> Clone() const override {
        return std::shared_ptr<CloneableException>(new SpawnError(*this));
    }
    void Rethrow() const override { throw SpawnError(*this); }

  private:
    SpawnError() : std::runtime_error("Failed to spawn thread, resource error") {}
};

void TraceGrowth(const WorkQueue::Load& load) {
    if (IsTracing()) {
        Trace(TracePhase::Instant, "pool", L"growth",
              {{.key = "workers", .number = static_cast<long long>(load.workers)},
               {.key = "queued", .number = static_cast<long long>(load.queued)},
               {.key = "running", .number = static_cast<long long>(load.running)}});
        TraceRunsOfWorkers();
    }
}

}  // namespace

GrowthClock GrowthClock::Real() {
    return {[] { return ::GetTickCount(); }, &MonotonicClock::now};
}

PoolGrowth::PoolGrowth(WorkQueue& queue, bool growable, StartWorkers startWorkers, const GrowthClock& clock)
    : m_queue(queue), m_growable(growable), m_startWorkers(std::move(startWorkers)), m_clock(clock) {}

bool PoolGrowth::CallersWait(OnFailure onFailure) const noexcept {
    if (m_queue.IsStopping()) {
        return false;
    }
    const State state = m_state;
    return state == State::UnderWay || (state == State::Failed && !s_failureIsFinal && onFailure == OnFailure::Wait);
}

bool PoolGrowth::TryQueue(WorkQueue::Entries& entry) {
    if (!m_growable) {
        m_queue.Append(entry);
        return true;
    }
    return m_queue.AppendUnlessFull(entry, kSpareWorkers);
}

void PoolGrowth::Queue(WorkQueue::Entries& entry, OnFailure onFailure) {
    if (!m_growable) {
        m_queue.Append(entry);
        return;
    }
    if (m_state == State::Idle && m_queue.AppendUnlessFull(entry, kSpareWorkers)) {
        return;
    }
    const WaitingRun run = CurrentRun();
    const WaitingRun::Note note(run, WaitKind::Growth, nullptr);
    RankedLock lock(m_mutex);
    m_done.wait(lock, [this, onFailure] { return !CallersWait(onFailure); });
    if (m_state != State::Idle) {
        if (onFailure == OnFailure::Wait) {
            m_queue.Append(entry);
        } else if (!m_queue.AppendUnlessFull(entry, kSpareWorkers)) {
            throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again),
                                    "the thread pool is full and cannot grow");
        }
        return;
    }
    if (AppendOnceSettled(entry)) {
        return;
    }
    WorkQueue::Entries growth = Begin();
    lock.unlock();  // other callers wait for the growth, not for the mutex
    m_queue.PrependUnlessStopping(growth);
    m_queue.Append(entry);
}

// Returns false, and leaves `entry`, if the pool stays full.
bool PoolGrowth::AppendOnceSettled(WorkQueue::Entries& entry) {
    const auto since = m_clock.now();
    bool appended = false;
    auto waited = MonotonicClock::duration::zero();
    while (!(appended = m_queue.AppendUnlessFull(entry, kSpareWorkers)) && !StaysFull(waited)) {
        m_queue.WaitForRoom(kSpareWorkers, kSettleTime);
        waited = m_clock.now() - since;
    }
    m_settled += waited;
    return appended;
}

// Whether a caller that has found the pool full for so long believes it.
bool PoolGrowth::StaysFull(MonotonicClock::duration waited) const {
    const WorkQueue::Load load = m_queue.GetLoad();
    if (load.workers < ProcessorCount() && m_settled + waited >= kSettleTimePerGrowth &&
        m_clock.tick() - m_lastSpawnTick >= kGrowthPeriod) {
        return true;
    }
    const bool isBeingTaken = load.queued != 0 && load.running < load.workers;
    return waited >= (isBeingTaken ? kLongestSettleTime : kSettleTime);
}

// Returns the growth's task: it starts the next batch, so that the caller creates no threads itself.
WorkQueue::Entries PoolGrowth::Begin() {
    // Built before anything is announced: without memory for it, every later caller would wait for a growth that no worker
    // runs. Bound to `this` alone: only this pool's workers, which hold the pool, run it.
    WorkQueue::Entries growth;
    growth.emplace_back(
        MakeTask(L"ThreadPool worker thread", std::bind(&PoolGrowth::SpawnThreads, this, kGrowthBatch)));
    // Before the pause: from now on every caller comes this way, and waits, instead of going past.
    m_state = State::UnderWay;
    try {
        if (const DWORD elapsed = m_clock.tick() - m_lastSpawnTick; elapsed < kGrowthPeriod) {
            SleepNoted(WaitKind::Growth, kGrowthPeriod - elapsed);
        }
    } catch (...) {
        m_state = State::Idle;
        throw;
    }
    TraceGrowth(m_queue.GetLoad());
    m_lastSpawnTick = m_clock.tick();
    m_settled = MonotonicClock::duration::zero();
    return growth;
}

void PoolGrowth::SpawnThreads(std::uint64_t count) {
    const SpawnError& failure = SpawnError::Original();
    try {
        const RankedLock lock(m_mutex);
        m_startWorkers(count);
        if (m_state == State::UnderWay) {  // else they are a pool's first
            ++s_growths;
        }
        m_state = State::Idle;
    } catch (...) {
        {
            const RankedLock lock(m_mutex);
            if (m_state == State::UnderWay) {
                ++s_failedGrowths;
                m_state = State::Failed;  // on purpose not taken back: see the table
            }
        }
        m_done.notify_all();
        throw SpawnError(failure);
    }
    m_done.notify_all();
}

void PoolGrowth::AwaitBatch() {
    const RankedLock lock(m_mutex);
}

void PoolGrowth::WakeCallers() {
    // Once through the mutex: no caller stands between its test and its sleep any more.
    AwaitBatch();
    m_done.notify_all();
}

}  // namespace Orvane::Internal
