// One scene of concurrency_lifetime_process_test, named on the command line.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/lifetime/library_use.h"
#include "tests/support/gate.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr int kEndOfMain = 7;
constexpr int kStillAlive = 8;

void Say(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

int EndOfMain() {
    Say("end of main");
    return kEndOfMain;
}

// Runs `body` in a task and waits for it: what is to end the process must do so before this returns.
template <typename Start, typename Body>
int RunInTask(Start start, Body body) {
    Task task = MakeTask(L"scene", [body] {
        Say("in the task");
        body();
    });
    start(task);
    task.Wait();
    return kStillAlive;
}

int LastUninitialiseInPoolTask() {
    ConcurrencyInitialize();
    return RunInTask(&GlobalThreadPool::Queue, [] { ConcurrencyUninitialize(); });
}

int LastUninitialiseInDedicatedThread() {
    ConcurrencyInitialize();
    return RunInTask(&GlobalThreadPool::LaunchInNewThread, [] { ConcurrencyUninitialize(); });
}

int NeverUninitialise() {
    ConcurrencyInitialize();
    UsePool();
    UseScheduler();
    UseDedicatedThread();
    return EndOfMain();
}

int NeverUninitialiseWhileBusy() {
    ConcurrencyInitialize();
    static Gate entered;
    GlobalThreadPool::Queue(MakeTask(L"blocked", [] {
        entered.Open();
        CancellableSleep(INFINITE);
    }));
    GlobalThreadPool::LaunchInNewThread(MakeTask(L"blocked too", [] { CancellableSleep(INFINITE); }));
    GlobalScheduler::Insert(ScheduledTask(MakeTask(L"recurrent", [] {}), TimeFromNow(0ms), 1ms));
    CreateScheduler();
    entered.Wait();
    return EndOfMain();
}

int NeverInitialise() {
    UsePool();
    UseScheduler();
    UseDedicatedThread();
    return EndOfMain();
}

int StaticObject() {
    static const ConcurrencyLifetime lifetime;
    UsePool();
    UseScheduler();
    return EndOfMain();
}

[[noreturn]] void SayWhy() {
    try {
        std::rethrow_exception(std::current_exception());
    } catch (const Unexpected& error) {
        Say(error.what());
    } catch (...) {
        Say("something else");
    }
    std::abort();
}

int OverrunWithoutInitialisation() {
    std::set_terminate(&SayWhy);
    Task slow = MakeTask(L"slow", [] { CancellableSleep(INFINITE); });
    GlobalScheduler::Insert(ScheduledTask(slow, TimeFromNow(0ms), 1ms));
    Sleep(60'000);
    return kStillAlive;
}

int OverrunAfterOverRelease() {
    ConcurrencyUninitialize();
    return OverrunWithoutInitialisation();
}

struct Scene {
    const char* name;
    int (*play)();
};

constexpr Scene kScenes[] = {
    {"last-uninitialise-in-pool-task", &LastUninitialiseInPoolTask},
    {"last-uninitialise-in-dedicated-thread", &LastUninitialiseInDedicatedThread},
    {"never-uninitialise", &NeverUninitialise},
    {"never-uninitialise-while-busy", &NeverUninitialiseWhileBusy},
    {"never-initialise", &NeverInitialise},
    {"static-object", &StaticObject},
    {"overrun-without-initialisation", &OverrunWithoutInitialisation},
    {"overrun-after-over-release", &OverrunAfterOverRelease},
};

}  // namespace

int main(int count, char** arguments) {
    for (const Scene& scene : kScenes) {
        if (count == 2 && std::strcmp(arguments[1], scene.name) == 0) {
            return scene.play();
        }
    }
    return EXIT_FAILURE;
}
