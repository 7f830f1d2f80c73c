// Ends, or does not end, in the way that its first argument names.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/gate.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

constexpr int kLivedOn = 42;

// What happens in a task of this name ends the process, so nobody comes back.
[[noreturn]] void LiveOn() {
    Sleep(60'000);
    std::_Exit(kLivedOn);
}

void ThrowUnknown() {
    throw 7;
}

const std::map<std::string, std::function<void()>> kEnds{
    {"uninitialise-on-a-worker",
     [] {
         GlobalThreadPool::Queue(MakeTask(L"doomed", &ConcurrencyUninitialize));
         LiveOn();
     }},
    {"uninitialise-on-a-dedicated-thread",
     [] {
         static Gate launched;  // the pool knows the thread as its own from then on
         GlobalThreadPool::LaunchInNewThread(MakeTask(L"doomed", [] {
             launched.Wait();
             ConcurrencyUninitialize();
         }));
         launched.Open();
         LiveOn();
     }},
    {"unknown-exception-on-a-worker",
     [] {
         GlobalThreadPool::Queue(MakeTask(L"doomed", &ThrowUnknown));
         LiveOn();
     }},
    {"unknown-exception-on-a-dedicated-thread",
     [] {
         GlobalThreadPool::LaunchInNewThread(MakeTask(L"doomed", &ThrowUnknown));
         LiveOn();
     }},
    {"never-uninitialise",
     [] {
         GlobalThreadPool::Queue(MakeTask(L"sleeps", [] { Sleep(INFINITE); }));
         GlobalThreadPool::LaunchInNewThread(MakeTask(L"sleeps", [] { Sleep(INFINITE); }));
     }},
};

}  // namespace

int main(int count, char** arguments) {
    if (count != 2 || !kEnds.contains(arguments[1])) {
        std::fputs("which end?\n", stderr);
        return 2;
    }
    ConcurrencyInitialize();
    kEnds.at(arguments[1])();
    return 0;
}
