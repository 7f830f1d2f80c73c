// What the other rooms have of a lifetime: each lifetime is like the first, and nothing of theirs outlives the last
// uninitialisation.
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <optional>

#include "concurrency/base/time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/scheduled_task.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/cancellation/wait_handles.h"
#include "tests/lifetime/library_use.h"
#include "tests/lifetime/started_threads.h"
#include "tests/support/resource_probe.h"
#include "tests/threadpool/at_end.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr std::size_t kWorkers = 8;

int ValueOfAJob() {
    return Orvane::Run(L"job", [] { return 7; }).Get();
}

// A thread of their own says the figures, which the environment asks for.
class ReportedFigures {
  public:
    ReportedFigures() { SetEnvironmentVariableW(L"ZARVO_FIGURES", L"3600"); }
    ~ReportedFigures() { SetEnvironmentVariableW(L"ZARVO_FIGURES", nullptr); }
    ReportedFigures(const ReportedFigures&) = delete;
    ReportedFigures& operator=(const ReportedFigures&) = delete;
};

TEST(LifetimeOfJobs, IsEachOne) {
    for (int cycle = 0; cycle < 3; ++cycle) {
        const ConcurrencyLifetime lifetime;
        EXPECT_EQ(ValueOfAJob(), 7);
    }
}

// At once: the pool would ask after 30 s.
TEST(LifetimeOfJobs, EndsByAskingThem) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    auto job = Orvane::Run(L"sleeps", [] { CancellableSleep(INFINITE); });

    lifetime.reset();

    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Shutdown);
}

// They stay for a second in case that there is more to watch.
TEST(LifetimeOfJobs, IsNotOutlivedByTheThreadsThatWatchOverThem) {
    const StartedThreads threads;
    const Event never;
    {
        const ConcurrencyLifetime lifetime;
        auto job = Orvane::Run(L"sleeps", [] { CancellableSleep(INFINITE); });
        job.CancelAfter(1h);
        job.CancelWhen(never.Get());
        EXPECT_EQ(threads.Count(), kWorkers + 2);
        job.Cancel();
        job.Wait();
    }
    EXPECT_EQ(threads.AliveCount(), 0U);
}

TEST(LifetimeOfFigures, IsThatOfTheThreadThatSaysThem) {
    const ReportedFigures figures;
    const StartedThreads threads;

    ConcurrencyInitialize();
    EXPECT_EQ(threads.AliveCount(), 1U);

    ConcurrencyUninitialize();
    EXPECT_EQ(threads.AliveCount(), 0U);
}

// Events are kept for later waits.
TEST(LifetimeOfWaits, IsNotOutlivedByTheirEvents) {
    const Event silent;
    const auto use = [](const auto& callable) {
        const ConcurrencyLifetime lifetime;
        Task task = MakeTask(L"task", callable);
        GlobalThreadPool::Queue(task);
        task.Wait();
    };
    use([] {});
    const ResourceProbe probe;

    use([&] { EXPECT_EQ(CancellableWaitForSingleObject(silent.Get(), 0), static_cast<DWORD>(WAIT_TIMEOUT)); });

    EXPECT_EQ(probe.Growth().handles, 0);
}

// A callable that the last uninitialisation destroys has initialised the library, and leaves it so.
TEST(LifetimeThatACallableHasBegun, IsLikeAnyOther) {
    const ReportedFigures figures;
    const StartedThreads threads;
    {
        const ConcurrencyLifetime lifetime;
        GlobalScheduler::Insert(ScheduledTask(MakeTask(L"left", [end = AtEnd([] { ConcurrencyInitialize(); })] {}),
                                              TimeFromNow(1h), Duration(0)));
    }
    EXPECT_EQ(threads.AliveCount(), 1U);  // which says the figures
    EXPECT_EQ(ValueOfAJob(), 7);

    ConcurrencyUninitialize();
    EXPECT_EQ(threads.AliveCount(), 0U);
}

}  // namespace
