// One scene of concurrency_lifetime_process_test, named on the command line.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/lifetime/library_use.h"
#include "tests/support/gate.h"
#include "tests/support/say_why.h"

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

int OverrunAfterOverRelease() {
    ConcurrencyUninitialize();
    std::set_terminate(&SayWhy);
    Task slow = MakeTask(L"slow", [] { CancellableSleep(INFINITE); });
    GlobalScheduler::Insert(ScheduledTask(slow, TimeFromNow(0ms), 1ms));
    Sleep(60'000);
    return kStillAlive;
}

struct Scene {
    const char* name;
    int (*play)();
};

constexpr Scene kScenes[] = {
    {"never-uninitialise", &NeverUninitialise},
    {"never-uninitialise-while-busy", &NeverUninitialiseWhileBusy},
    {"never-initialise", &NeverInitialise},
    {"static-object", &StaticObject},
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
