// One end of the process, named on the command line: docs/process-ends.md lists them.
#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/testing.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/scheduler/tracker_impl.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/journeys/scenes.h"
#include "tests/scheduler/moments.h"
#include "tests/support/allocations.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/threadpool/thread_starts.h"

namespace Shop {

struct Halt {};

struct NotRenewable : Orvane::Internal::ITaskState {
    void operator()() override {}
    std::shared_ptr<ITaskState> Recreate() override { throw Halt(); }
    std::shared_ptr<Orvane::Internal::IFutureState> GetFuture() override { return future; }

    std::shared_ptr<Orvane::Internal::FutureImpl<void>> future = std::make_shared<Orvane::Internal::FutureImpl<void>>();
};

// Throws when it is destroyed, once, where it has come to rest.
struct Bomb {
    Bomb() = default;
    Bomb(Bomb&& other) noexcept { std::swap(isLive, other.isLive); }
    Bomb& operator=(Bomb&&) = delete;
    ~Bomb() noexcept(false) {
        if (isLive) {
            throw std::runtime_error("from a destructor");
        }
    }

    bool isLive = false;
};

Bomb LiveBomb() {
    Bomb bomb;
    bomb.isLive = true;
    return bomb;
}

}  // namespace Shop

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// Runs it when the thread has its description.
void Launch(const std::function<void()>& callable) {
    Gate described;
    GlobalThreadPool::LaunchInNewThread(MakeTask(L"Import", [&] {
        described.Wait();
        callable();
    }));
    described.Open();
    StayForEver();
}

void Insert(const Task& task, const Duration& interval = kOnce) {
    GlobalScheduler::Insert(ScheduledTask(task, k1970, interval));
}

void UnknownType() {
    const ConcurrencyLifetime lifetime;
    PlayOnWorker(L"Import", [] { throw Shop::Halt(); });
}

void Dedicated() {
    const ConcurrencyLifetime lifetime;
    Launch(&Fail);
}

void Overrun() {
    Insert(MakeTask(L"Import", [] { CancellableSleep(INFINITE); }), kTick);
    StayForEver();
}

void SchedulerWithoutPool() {
    ThreadStarts starts;
    starts.FailAt(2);  // the first is the scheduler's own
    const ConcurrencyLifetime lifetime;
    Insert(MakeTask(L"Import", [] {}));
    StayForEver();
}

void PoolOnAWorker() {
    ConcurrencyInitialize();
    PlayOnWorker(L"Import", [] { ConcurrencyUninitialize(); });
}

void PoolOnADedicatedThread() {
    ConcurrencyInitialize();
    Launch([] { ConcurrencyUninitialize(); });
}

void PoolInAJob() {
    ConcurrencyInitialize();
    Post(L"Import", [] { Run(L"Fetch 17", [] { ConcurrencyUninitialize(); }).Get(); });
    StayForEver();
}

void SchedulerThatCannotBeJoined() {
    ConcurrencyInitialize();
    GlobalScheduler::Insert(ScheduledTask(MakeTask(L"Import", [] {}), Now() + 1h, kOnce));
    const ImportPatch patch(
        LibraryUnderTest(), "WaitForSingleObject", +[](HANDLE, DWORD) -> DWORD { return WAIT_FAILED; });
    ConcurrencyUninitialize();
}

// What the lifetime's lock, one of the C++ library, calls.
#ifdef GCC_GTHR_WIN32_H
constexpr const char* kLock = "EnterCriticalSection";
#else
constexpr const char* kLock = "pthread_mutex_lock";
#endif

int LockFailsHere(void*) {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur), "lock");
}

void Lifetime() {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    const ImportPatch patch(LibraryUnderTest(), kLock, &LockFailsHere);
    lifetime.reset();
}

void TrackerInItsOwnRun() {
    const ConcurrencyLifetime lifetime;
    std::unique_ptr<Tracker> tracker;
    Gate set;
    tracker = std::make_unique<Tracker>(Schedule(L"Import", 0s, 0s, [&] {
        set.Wait();
        tracker.reset();
    }));
    set.Open();
    StayForEver();
}

void Renewal() {
    TrackerImpl tracker;
    tracker.SetTask(ScheduledTask(Task(L"Import", std::make_shared<Shop::NotRenewable>()), Now(), 1s));
    tracker.UpdateWrapper(std::function<void()>([] {}));
}

// The slot of the outer run goes with the last uninitialisation: to restore it there takes memory.
void Restoring() {
    ConcurrencyInitialize();
    static std::optional<FailingNew> failing;
    Task inner = MakeTask(L"Fetch 17", [] {
        ConcurrencyUninitialize();
        failing.emplace(1);
    });
    MakeTask(L"Import", [&] { inner(); })();
}

void DeafInVirtualTime() {
    const ConcurrencyLifetime lifetime;
    const Testing::VirtualTime time;
    Post(L"Import", [] {
        Run(L"Fetch 17", [] {
            ResetFutureObject({});  // hears nothing from now on
            CancellableSleep(INFINITE);
        }).Get();
    });
}

void VirtualTimeWithoutAThread() {
    const ConcurrencyLifetime lifetime;
    ThreadStarts starts;
    const Testing::VirtualTime time;
    Post(L"Import", [] {});
    starts.FailAt(1);
}

void VirtualTimeWithoutASecondThread() {
    const ConcurrencyLifetime lifetime;
    ThreadStarts starts;
    const Testing::VirtualTime time;
    Post(L"Import", [] { Post(L"Fetch 17", [] {}); });
    starts.FailAt(2);
}

void CallableOfAJob() {
    const ConcurrencyLifetime lifetime;
    Post(L"Import", [bomb = Shop::LiveBomb()] {});
    StayForEver();
}

void ResultOfAJob() {
    const ConcurrencyLifetime lifetime;
    Post(L"Import", [] { Run(L"Fetch 17", &Shop::LiveBomb).Detach(); });
    StayForEver();
}

constexpr Scene kScenes[] = {
    {"worker", &PlayWorker},
    {"unknown-type", &UnknownType},
    {"dedicated", &Dedicated},
    {"overrun", &Overrun},
    {"scheduler-without-pool", &SchedulerWithoutPool},
    {"pool-on-worker", &PoolOnAWorker},
    {"pool-on-dedicated", &PoolOnADedicatedThread},
    {"pool-in-job", &PoolInAJob},
    {"scheduler-join", &SchedulerThatCannotBeJoined},
    {"lifetime", &Lifetime},
    {"tracker", &TrackerInItsOwnRun},
    {"renewal", &Renewal},
    {"restoring", &Restoring},
    {"virtual-deaf", &DeafInVirtualTime},
    {"virtual-end", &VirtualTimeWithoutAThread},
    {"virtual-thread", &VirtualTimeWithoutASecondThread},
    {"job-callable", &CallableOfAJob},
    {"job-result", &ResultOfAJob},
};

}  // namespace

int main(int count, char** arguments) {
    return Zarvo::Test::PlayScene(kScenes, count, arguments);
}
