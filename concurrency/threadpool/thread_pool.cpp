#include "concurrency/threadpool/thread_pool.h"

#include <chrono>
#include <stdexcept>

#include "concurrency/base/clock.h"
#include "concurrency/errors/exceptions.h"

namespace Orvane::Internal {

namespace {

// How long shutdown lets the workers finish before it cancels what is left.
constexpr std::chrono::seconds kStopGrace{30};

}  // namespace

ThreadPoolCore::ThreadPoolCore(bool growable, WorkerBody workerBody, const GrowthClock& clock)
    : m_workerBody(workerBody),
      m_growth(
          m_queue, growable, [this](std::uint64_t count) { StartWorkers(count); }, clock),
      m_dedicatedThreads(m_threads) {}

void ThreadPoolCore::Queue(const Task& task) {
    WorkQueue::Entries entry;
    entry.emplace_back(task);
    m_growth.Queue(entry);
    CancelIfAllIs(task);
}

void ThreadPoolCore::QueueOrFail(const Task& task) {
    WorkQueue::Entries entry;
    entry.emplace_back(task);
    m_growth.QueueOrFail(entry);
    CancelIfAllIs(task);
}

bool ThreadPoolCore::TryQueue(const Task& task) {
    WorkQueue::Entries entry;
    entry.emplace_back(task);
    if (!m_growth.TryQueue(entry)) {
        return false;
    }
    CancelIfAllIs(task);
    return true;
}

// After a shutdown has cancelled everything no worker runs the task: a caller that waits for it must not wait for ever.
void ThreadPoolCore::CancelIfAllIs(const Task& task) {
    if (m_queue.IsAllCancelled()) {
        Task(task).Cancel();
    }
}

void ThreadPoolCore::LaunchInNewThread(const Task& task) {
    m_dedicatedThreads.Launch(task, shared_from_this());
}

bool ThreadPoolCore::IsPresent(const Task& task) const {
    return m_queue.IsPresent(task);
}

void ThreadPoolCore::IncreaseKilledThreadCount() {
    m_queue.IncreaseKilledThreadCount();
}

void ThreadPoolCore::SpawnThreads(std::uint64_t count) {
    m_growth.SpawnThreads(count);
}

void ThreadPoolCore::StartWorkers(std::uint64_t count) {
    const auto batch = std::make_shared<WorkerBatch>();
    PoolThreads::Records started;
    for (std::uint64_t i = 0; i < count; ++i) {
        started.emplace_back();
        started.back() = NativeThread::Start(
            [core = shared_from_this(), batch](TaskNote& note) { core->m_workerBody(*core, *batch, note); },
            "an exception has left a worker of the pool");
    }
    m_threads.Add(started);
    m_queue.CountWorkers(*batch, count);
}

void ThreadPoolCore::Abandon() {
    m_queue.Stop();
}

void ThreadPoolCore::Stop() {
    RefuseOwnThreads();
    m_threads.Stop();
    m_queue.Stop();
    m_growth.WakeCallers();
    if (!m_queue.WorkersLeave(MonotonicClock::now() + kStopGrace)) {
        m_queue.CancelAll();
    }
    m_threads.JoinAll();
    m_dedicatedThreads.JoinFinished();
}

void ThreadPoolCore::RefuseOwnThreads() {
    // A thread that was started is put on record under the mutex of who started it. One after the other: the end of a
    // dedicated thread need not wait for a growth.
    m_dedicatedThreads.AwaitLaunch();
    m_growth.AwaitBatch();
    if (m_threads.HasCurrentThread()) {
        throw std::runtime_error("Trying to call destructor in thread from thread pool causes deadlock!");
    }
}

}  // namespace Orvane::Internal
