// Threads of one task each: their launches, also from thread-local objects of threads that end, against their reaping.

#include <atomic>

#include "concurrency/base/windows_api.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/schedules/scenarios/tasks_support.h"

namespace {

using Orvane::MakeTask;
using Orvane::Internal::NullPolicy;
using Orvane::Internal::Task;
using Orvane::Internal::ThreadPool;
using Orvane::Internal::ThreadPoolCore;
using Schedules::Check;

using Pool = ThreadPool<NullPolicy>;

// Launches its task when it is destroyed.
class LastLaunch {
  public:
    LastLaunch(std::shared_ptr<ThreadPoolCore> core, Task task) : m_core(std::move(core)), m_task(std::move(task)) {}
    ~LastLaunch() {
        const auto begin = Schedules::Now();
        m_core->LaunchInNewThread(m_task);
        m_waited = Schedules::Now() - begin;
    }
    LastLaunch(const LastLaunch&) = delete;
    LastLaunch& operator=(const LastLaunch&) = delete;

    static std::int64_t Waited() { return m_waited; }

  private:
    static inline std::atomic<std::int64_t> m_waited = 0;
    const std::shared_ptr<ThreadPoolCore> m_core;
    const Task m_task;
};

// A task that leaves a thread-local object behind, which launches `last`.
Task LaunchesAtTheEnd(const std::shared_ptr<ThreadPoolCore>& core, const Task& last) {
    return MakeTask(L"First", [core, last] {
        static thread_local std::unique_ptr<LastLaunch> t_launch;
        t_launch = std::make_unique<LastLaunch>(core, last);
    });
}

}  // namespace

SCENARIO(DedicatedThreadsEndAgainstLaunches) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::atomic<int> runs = 0;
    {
        Pool pool(1);
        pool.Core()->LaunchInNewThread(MakeTask(L"First", [&runs] { ++runs; }));
        pool.Core()->LaunchInNewThread(MakeTask(L"Second", [&runs] { ++runs; }));
    }
    Check(runs == 2, "both have run");
}

SCENARIO(ThreadThatEndsLaunchesAndDoesNotWaitForItself) {
    const Orvane::ConcurrencyLifetime lifetime;
    Pool pool(1);
    auto last = MakeTask(L"Last", [] {});
    pool.Core()->LaunchInNewThread(LaunchesAtTheEnd(pool.Core(), last));
    last.Wait();
    Check(LastLaunch::Waited() == 0, "the launch has not waited for the thread that makes it");
}

// The launch of this thread finds the other one at its end, and that one wants to launch, too.
SCENARIO(ThreadThatEndsLaunchesAgainstALaunch) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::atomic<int> runs = 0;
    {
        Pool pool(1);
        auto last = MakeTask(L"Last", [&runs] { ++runs; });
        auto first = LaunchesAtTheEnd(pool.Core(), last);
        pool.Core()->LaunchInNewThread(first);
        first.Wait();
        pool.Core()->LaunchInNewThread(MakeTask(L"Second", [&runs] { ++runs; }));
        last.Wait();
    }
    Check(runs == 2, "both have run");
}
