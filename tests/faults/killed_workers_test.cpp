// A worker that is killed at each of its steps in which it holds no lock of the library. The idle one is in
// tests/threadpool/thread_pool_whitebox_test.cpp.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/faults/mixed_load.h"
#include "tests/jobs/own_event.h"
#include "tests/support/eventually.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// The victim comes to its step, and stays there.
struct Victim {
    std::atomic<DWORD> thread = 0;
    OwnEvent never;

    void StayIn(const std::function<void()>& step) {
        thread = GetCurrentThreadId();
        step();
    }
};

// Stays in its destructor, on the worker.
struct StaysInDestructor {
    std::shared_ptr<Victim> victim;

    ~StaysInDestructor() {
        victim->StayIn([] { Sleep(INFINITE); });
    }
};

struct StepOfAWorker {
    const char* name;
    Task (*make)(const std::shared_ptr<Victim>& victim);
};

std::ostream& operator<<(std::ostream& stream, const StepOfAWorker& step) {
    return stream << step.name;
}

const StepOfAWorker kSteps[] = {
    {"Task",
     [](const std::shared_ptr<Victim>& victim) {
         return MakeTask(L"killed", [victim] { victim->StayIn([] { Sleep(INFINITE); }); });
     }},
    {"CancellableSleep",
     [](const std::shared_ptr<Victim>& victim) {
         return MakeTask(L"killed", [victim] { victim->StayIn([] { CancellableSleep(INFINITE); }); });
     }},
    {"HandleWait",
     [](const std::shared_ptr<Victim>& victim) {
         return MakeTask(L"killed", [victim] {
             victim->StayIn([&] { CancellableWaitForSingleObject(victim->never.Get(), INFINITE); });
         });
     }},
    {"DestructionOfItsCallable",
     [](const std::shared_ptr<Victim>& victim) {
         return MakeTask(L"killed", [stays = std::make_shared<StaysInDestructor>(victim)] {});
     }},
};

class KilledWorker : public testing::TestWithParam<StepOfAWorker> {};

TEST_P(KilledWorker, LeavesAPoolThatWorksAndEnds) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    const auto victim = std::make_shared<Victim>();
    GlobalThreadPool::Queue(GetParam().make(victim));
    ASSERT_TRUE(Eventually([&] { return victim->thread != 0; }));
    Sleep(20);  // on purpose: it should be killed in its wait; on the way to it, it would show less
    const HANDLE thread = OpenThread(THREAD_TERMINATE | SYNCHRONIZE, FALSE, victim->thread);
    ASSERT_NE(thread, nullptr);
    ASSERT_TRUE(TerminateThread(thread, 0));
    EXPECT_EQ(WaitForSingleObject(thread, 30'000), WAIT_OBJECT_0);
    CloseHandle(thread);
    GlobalThreadPool::IncreaseKilledThreadCount();

    ExpectAMixedLoadToEnd();
    const BackgroundCall stop([&] { lifetime.reset(); });
    EXPECT_TRUE(stop.Ends());
}

INSTANTIATE_TEST_SUITE_P(In, KilledWorker, testing::ValuesIn(kSteps),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
