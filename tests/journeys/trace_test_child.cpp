// Some work of each kind, to be traced.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "concurrency/base/time.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/runs.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "zarvo_orvane_logging/orvane_logging.h"
#include "zarvo_orvane_logging/report_recording.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// Until a run waits in an operation of this name.
void AwaitWaitIn(const wchar_t* operation) {
    const bool isThere = Eventually([operation] {
        const auto runs = ListRuns();
        return std::any_of(runs.begin(), runs.end(),
                           [operation](const RunInfo& run) { return run.wait.starts_with(operation); });
    });
    if (!isThere) {
        throw std::runtime_error("nothing waits there");
    }
}

void RunTasks() {
    Task plain = MakeTask(L"Plain", [] { MakeTask(L"Nested", [] {})(); });
    GlobalThreadPool::Queue(plain);
    plain.Wait();
    Task failing = MakeTask(L"Failing", [] { throw Unexpected(L"on purpose"); });
    GlobalThreadPool::Queue(failing);
    failing.Wait();
    Gate entered;
    Task cancelled = MakeTask(L"Cancelled", [&entered] {
        entered.Open();
        CancellableSleep(INFINITE);
    });
    GlobalThreadPool::LaunchInNewThread(cancelled);
    entered.Wait();
    cancelled.Cancel();
    cancelled.Wait();
}

void RunJobs() {
    auto sum = Run(L"Sum \"40 + 2\"", [] { return 42; });
    sum.Get();
    auto failing = Run(L"Broken", [] { throw std::runtime_error("on purpose"); });
    try {
        failing.Get();
    } catch (const std::runtime_error&) {
        // As it should.
    }
    auto nap = Run(L"Nap", [] { CancellableSleep(INFINITE); });
    AwaitWaitIn(L"CancellableSleep");
    nap.Cancel();
    nap.Wait();
    Gate go;
    auto parent = Run(L"Parent", [&go] { Run(L"Child", [&go] { go.Wait(); }).Wait(); });
    AwaitWaitIn(L"a wait for");
    go.Open();
    parent.Wait();
}

// One at a time: the second waits in the group, and is cancelled there.
void RunGroup() {
    Gate entered;
    JobGroup import(L"Import", 1);
    import.Run(L"Fetch 1", [&entered] {
        entered.Open();
        CancellableSleep(INFINITE);
    });
    entered.Wait();
    import.Run(L"Fetch 2", [] {});
    import.Cancel();
    try {
        import.Wait();
    } catch (const CancelledException&) {
        // As it should.
    }
}

// Says on standard output which one it is.
void WaitForAMutex() {
    fifo_mutex mutex;
    std::cout << std::hex << reinterpret_cast<std::uintptr_t>(&mutex);
    mutex.lock();
    auto waiting = Run(L"Waiting", [&mutex] {
        mutex.lock();
        mutex.unlock();
    });
    AwaitWaitIn(L"fifo_mutex::lock");
    mutex.unlock();
    waiting.Wait();
}

// More blocked tasks than the pool has workers.
void GrowThePool() {
    Gate go;
    std::vector<Task> holding;
    for (int i = 0; i < 12; ++i) {
        holding.push_back(MakeTask(L"Holding", [&go] { go.Wait(); }));
        GlobalThreadPool::Queue(holding.back());
    }
    go.Open();
    for (Task& task : holding) {
        task.Wait();
    }
}

// Until the scheduler has said that it skips a run.
void Overrun() {
    std::atomic<bool> isOver = false;
    const auto schedule = Schedule(L"Slow", std::chrono::milliseconds(0), std::chrono::milliseconds(10), [&isOver] {
        while (!isOver) {
            CancellableSleep(1);
        }
    });
    const bool isSkipped = Eventually([] { return Reports::CountRecorded(L"Scheduler") != 0; });
    isOver = true;
    if (!isSkipped) {
        throw std::runtime_error("the scheduler skips nothing");
    }
}

// A start that lies as far back as time reaches.
void ComeVeryLate() {
    Task ancient = MakeTask(L"Ancient", [] {});
    GlobalScheduler::Insert({ancient, (TimePoint::min)(), Duration::zero()});
    ancient.Wait();
}

}  // namespace

int main() {
    g_OrvaneLogging.SetSink(OrvaneLogging::Sink::Recording);
    const ConcurrencyLifetime lifetime;
    RunTasks();
    RunJobs();
    RunGroup();
    WaitForAMutex();
    GrowThePool();
    Overrun();
    ComeVeryLate();
}
