// The short way to a task, as callers use it.
#include "concurrency/tasks/make_task.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "concurrency/base/time.h"
#include "concurrency/errors/exceptions.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/task_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

int g_freeCalls = 0;

void FreeFunction() {
    ++g_freeCalls;
}

TEST(MakeTask, MakesATaskThatRunsTheCallable) {
    int calls = 0;
    Task task = MakeTask(L"Count", [&calls] { ++calls; });
    EXPECT_STREQ(task.GetName(), L"Count");
    EXPECT_FALSE(task.IsBusy());
    EXPECT_FALSE(task.IsCancelled());

    task();
    EXPECT_EQ(calls, 1);
}

TEST(MakeTask, HandsOutTheFutureOfTheTask) {
    FuturePointer future;
    Task task = MakeTask(L"", [] {}, future);

    ASSERT_NE(future, nullptr);
    EXPECT_EQ(task.GetWrapper()->GetFuture(), future);
    EXPECT_EQ(StateOf(*future), State::NotStarted);
    task();
    EXPECT_TRUE(future->TimedWait(TimePoint::min())) << "not attached";
}

TEST(MakeTask, FutureKeepsTheOutcomeWhenTheTaskHasBeenWaitedFor) {
    FuturePointer failed;
    Task failing = MakeTask(L"", [] { throw Unexpected(L"code %d", 9); }, failed);
    failing();
    failing.Wait();
    try {
        failed->GetValue();
        FAIL() << "nothing was thrown";
    } catch (const Unexpected& error) {
        EXPECT_STREQ(error.message, L"code 9");
    }

    FuturePointer normal;
    Task passing = MakeTask(L"", [] {}, normal);
    passing();
    passing.Wait();
    EXPECT_NO_THROW(normal->GetValue());

    FuturePointer cancelled;
    Task stopped = MakeTask(L"", [] {}, cancelled);
    stopped.Cancel();
    stopped.Wait();
    EXPECT_THROW(cancelled->GetValue(), CancelledException);
}

TEST(MakeTask, ReplacesWhatTheFuturePointerHeld) {
    FuturePointer future(new Future());
    const std::weak_ptr<Future> before = future;
    const Task task = MakeTask(L"", [] {}, future);

    EXPECT_TRUE(before.expired());
}

// Keeps the thread in the run whose outcome everybody has seen already.
struct HeldPolicy {
    static bool Enter() noexcept { return true; }
    static void Leave() noexcept { letGo->Wait(); }
    static inline Gate* letGo = nullptr;
};

// Whether what the callable has captured is there when the task has been waited for, and when its thread has let go.
template <typename Callable>
std::pair<bool, bool> OutlivesWaitAndRun(Callable body) {
    Gate letGo;
    HeldPolicy::letGo = &letGo;
    auto captured = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = captured;
    Task task = MakeTask<HeldPolicy>(L"Held", [captured, body] { body(); });
    captured.reset();
    PlainThread runner([task]() mutable { task(); });

    task.Wait();
    const bool afterTheWait = !watched.expired();
    letGo.Open();
    runner.Join();
    return {afterTheWait, !watched.expired()};
}

TEST(MakeTask, CallableThatReturnsIsGoneAfterTheWait) {
    EXPECT_EQ(OutlivesWaitAndRun([] {}), std::pair(false, false));
}

TEST(MakeTask, CallableThatThrowsIsKeptUntilItsThreadLetsGo) {
    EXPECT_EQ(OutlivesWaitAndRun([] { throw Unexpected(L"failed"); }), std::pair(true, false));
    EXPECT_EQ(OutlivesWaitAndRun([] { GetFutureObject()->RequestCancel(); }), std::pair(true, false));
}

TEST(MakeTask, TakesEveryKindOfCallable) {
    int calls = 0;
    const auto constant = [&calls] { ++calls; };
    auto changing = [&calls, count = 0]() mutable { calls += ++count; };
    struct Functor {
        void operator()() { ++*calls; }
        int* calls;
    };
    g_freeCalls = 0;

    MakeTask(L"", constant)();
    MakeTask(L"", changing)();
    MakeTask(L"", std::move(changing))();
    MakeTask(L"", Functor{&calls})();
    MakeTask(L"", FreeFunction)();
    MakeTask(L"", &FreeFunction)();
    EXPECT_EQ(calls, 4);
    EXPECT_EQ(g_freeCalls, 2);
}

TEST(MakeTask, IgnoresWhatTheCallableReturns) {
    FuturePointer future;
    Task task = MakeTask(L"", [] { return 42; }, future);
    task();

    EXPECT_TRUE(future->IsNormal());
}

int g_initialized = 0;

long __stdcall CountInitialize(void*, unsigned long) {
    ++g_initialized;
    return -1;
}

TEST(MakeTask, TakesAThreadingPolicyInBothForms) {
    const ImportPatch patch(LibraryUnderTest(), "CoInitializeEx", &CountInitialize);
    g_initialized = 0;
    MakeTask<ComPolicyMTA>(L"", [] {})();
    EXPECT_EQ(g_initialized, 1);

    FuturePointer future;
    MakeTask<ComPolicyMTA>(L"", [] {}, future)();
    EXPECT_EQ(g_initialized, 2);
    EXPECT_TRUE(future->IsNormal());

    MakeTask(L"", [] {})();
    EXPECT_EQ(g_initialized, 2);
}

}  // namespace
