// A pool that is full, and the growth that its callers wait for.

#include <stdexcept>

#include "concurrency/threadpool/pool_growth.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::MakeTask;
using Orvane::Internal::GrowthClock;
using Orvane::Internal::PoolGrowth;
using Orvane::Internal::Task;
using Orvane::Internal::TaskNote;
using Orvane::Internal::WorkerBatch;
using Orvane::Internal::WorkQueue;
using Schedules::Check;
using Schedules::Party;

// A pool of one worker. It is always full, as it never has three to spare, unless it counts its worker more often.
class FullPool {
  public:
    explicit FullPool(bool growthFails, std::uint64_t counted = 1)
        : m_growth(m_queue, true, [this, growthFails](std::uint64_t) { Grow(growthFails); }, GrowthClock::Real()) {
        AddWorker(counted);
    }
    ~FullPool() {
        if (!m_queue.IsStopping()) {
            Stop();
        }
        m_growth.AwaitBatch();
        while (const auto worker = TakeWorker()) {
            worker->party->Join();
        }
    }
    FullPool(const FullPool&) = delete;
    FullPool& operator=(const FullPool&) = delete;

    void Queue(const Task& task) {
        WorkQueue::Entries entry;
        entry.emplace_back(task);
        m_growth.Queue(entry);
    }
    void Stop() {
        m_queue.Stop();
        m_growth.WakeCallers();
    }

  private:
    struct Worker {
        std::shared_ptr<WorkerBatch> batch = std::make_shared<WorkerBatch>();
        TaskNote note;
        std::unique_ptr<Party> party;
    };

    void Grow(bool fails) {
        if (fails) {
            throw std::runtime_error("no thread");
        }
        AddWorker(1);
    }
    void AddWorker(std::uint64_t counted) {
        auto worker = std::make_unique<Worker>();
        Worker& added = *worker;
        added.party = std::make_unique<Party>([this, &added] { m_queue.RunWorker(*added.batch, added.note); });
        m_queue.CountWorkers(*added.batch, counted);
        const std::lock_guard lock(m_mutex);
        m_workers.push_back(std::move(worker));
    }
    std::unique_ptr<Worker> TakeWorker() {
        const std::lock_guard lock(m_mutex);
        std::unique_ptr<Worker> worker;
        if (!m_workers.empty()) {
            worker = std::move(m_workers.back());
            m_workers.pop_back();
        }
        return worker;
    }

    WorkQueue m_queue;
    PoolGrowth m_growth;
    std::mutex m_mutex;
    std::vector<std::unique_ptr<Worker>> m_workers;
};

}  // namespace

SCENARIO(GrowthAddsAWorkerForAFullPool) {
    const Orvane::ConcurrencyLifetime lifetime;
    FullPool pool(false);
    auto task = MakeTask(L"Task", [] {});
    pool.Queue(task);
    task.Wait();
}

SCENARIO(GrowthIsAwaitedByASecondCaller) {
    const Orvane::ConcurrencyLifetime lifetime;
    FullPool pool(false);
    auto first = MakeTask(L"First", [] {});
    auto second = MakeTask(L"Second", [] {});
    Party caller([&] { pool.Queue(second); });
    pool.Queue(first);
    caller.Join();
    first.Wait();
    second.Wait();
}

SCENARIO(GrowthIsNotNeededWhereThereIsRoom) {
    const Orvane::ConcurrencyLifetime lifetime;
    FullPool pool(false, 4);
    auto task = MakeTask(L"Task", [] {});
    pool.Queue(task);
    task.Wait();
}

// Callers of a pool whose growth has failed wait until it stops.
SCENARIO(GrowthFailsAgainstShutdown, {.patience = 2000 * Schedules::kMillisecond}) {
    const Orvane::ConcurrencyLifetime lifetime;
    FullPool pool(true);
    Party caller([&] {
        pool.Queue(MakeTask(L"First", [] {}));
        pool.Queue(MakeTask(L"Second", [] {}));
    });
    std::this_thread::sleep_for(std::chrono::seconds(1));
    pool.Stop();
}
