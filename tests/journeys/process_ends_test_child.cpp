// One end of the process, named on the command line: docs/process-ends.md lists them. And what may be in the way of its last words.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <iterator>
#include <memory>
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
#include "tests/scheduler/moments.h"
#include "tests/support/allocations.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/threadpool/thread_starts.h"

// How a program learns of a lock that no other thread gives back.
#ifdef _WIN32
#define LOCK_STREAM(stream) _lock_file(stream)
#else
#define LOCK_STREAM(stream) flockfile(stream)
#endif

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

// Longer than every limit of a test: the process must have ended by then.
void StayForEver() {
    static Gate never;
    never.Wait();
}

void Queue(const std::wstring& name, const std::function<void()>& callable) {
    GlobalThreadPool::Queue(MakeTask(name.c_str(), callable));
    StayForEver();
}

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

[[noreturn]] void Fail() {
    throw std::runtime_error("no such file");
}

void Worker() {
    const ConcurrencyLifetime lifetime;
    Queue(L"Import", &Fail);
}

void UnknownType() {
    const ConcurrencyLifetime lifetime;
    Queue(L"Import", [] { throw Shop::Halt(); });
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
    Queue(L"Import", [] { ConcurrencyUninitialize(); });
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

void LockFailsHere(LPCRITICAL_SECTION) {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur), "lock");
}

void Lifetime() {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    const ImportPatch patch(LibraryUnderTest(), "EnterCriticalSection", &LockFailsHere);
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

// What may be in the way.

void WithoutMemory() {
    const ConcurrencyLifetime lifetime;
    Queue(L"Import", [] {
        const std::runtime_error error("no such file");  // its text takes memory
        static std::optional<NoMemory> none;
        none.emplace();
        throw error;
    });
}

void WithBadAlloc() {
    const ConcurrencyLifetime lifetime;
    Queue(L"Import", [] {
        static std::optional<NoMemory> none;
        none.emplace();
        int* volatile number = new int;
        delete number;
    });
}

void WhileAnotherThreadHoldsTheStream() {
    std::set_terminate([] { std::_Exit(3); });
    const ConcurrencyLifetime lifetime;
    LOCK_STREAM(stderr);
    Worker();
}

void WithoutStandardError() {
    std::set_terminate([] {
        std::fputs("terminate handler", stdout);
        std::fflush(stdout);
        std::_Exit(3);
    });
    std::fclose(stderr);
    Worker();
}

void WithNoneToBeHad(HANDLE none) {
    static HANDLE s_none;
    s_none = none;
    const ImportPatch patch(LibraryUnderTest(), "GetStdHandle", +[](DWORD) -> HANDLE { return s_none; });
    const ImportPatch write(
        LibraryUnderTest(), "WriteFile", +[](HANDLE, LPCVOID, DWORD, LPDWORD, LPVOID) -> BOOL { std::_Exit(1); });
    Worker();
}

void ForTheDebugger() {
    const ImportPatch patch(
        LibraryUnderTest(), "OutputDebugStringA", +[](LPCSTR text) {
            std::fwrite(text, 1, std::strlen(text) - 1, stdout);  // a line feed would become two characters
            std::fflush(stdout);
        });
    Worker();
}

void HandlerSeesTheException() {
    std::set_terminate([] {
        try {
            std::rethrow_exception(std::current_exception());
        } catch (const std::exception& error) {
            std::fputs(error.what(), stdout);
            std::fflush(stdout);
        }
        std::_Exit(7);
    });
    Worker();
}

void Say(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

struct SayUnwound {
    ~SayUnwound() { Say("unwound, "); }
};

void AfterUnwinding() {
    std::set_terminate([] {
        Say("terminate handler");
        std::_Exit(3);
    });
    const ImportPatch patch(LibraryUnderTest(), "CoUninitialize", +[] { Say("left the apartment, "); });
    const ConcurrencyLifetime lifetime;
    Queue(L"Import", [] {
        const SayUnwound unwound;
        Fail();
    });
}

void WithOtherCharacters() {
    const ConcurrencyLifetime lifetime;
    Queue(L"Gr\u00f6\u00dfe \u20ac \xD83D\xDE00 \xD800]\n\t\x1b",
          [] { throw std::runtime_error("caf\xC3\xA9 caf\xE9\r\n\x1b[2J \xC2\x9B \xF0\x9F\x98\x80"); });
}

void WithALongText(std::string text) {
    const ConcurrencyLifetime lifetime;
    for (int i = 0; i < 5'000; ++i) {
        text += "\xC3\xA9";
    }
    Queue(L"Import", [&] { throw std::runtime_error(text); });
}

void WithALongName() {
    ConcurrencyInitialize();
    Post(std::wstring(1'000, L'\u20ac').c_str(), [] { ConcurrencyUninitialize(); });
    StayForEver();
}

struct Scene {
    const char* name;
    void (*play)();
};

constexpr Scene kScenes[] = {
    {"worker", &Worker},
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
    {"without-memory", &WithoutMemory},
    {"bad-alloc", &WithBadAlloc},
    {"stream-held", &WhileAnotherThreadHoldsTheStream},
    {"closed", &WithoutStandardError},
    {"null", [] { WithNoneToBeHad(nullptr); }},
    {"invalid", [] { WithNoneToBeHad(INVALID_HANDLE_VALUE); }},
    {"debugger", &ForTheDebugger},
    {"handler", &HandlerSeesTheException},
    {"unwound", &AfterUnwinding},
    {"characters", &WithOtherCharacters},
    {"long", [] { WithALongText(""); }},
    {"long-by-one", [] { WithALongText("a"); }},
    {"long-name", &WithALongName},
};

}  // namespace

int main(int count, char** arguments) {
    for (const Scene& scene : kScenes) {
        if (count == 2 && std::strcmp(arguments[1], scene.name) == 0) {
            scene.play();
            return EXIT_FAILURE;
        }
    }
    return EXIT_FAILURE;
}
