#include "tests/support/task_thread.h"

#include <gtest/gtest.h>

#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "tests/support/eventually.h"

namespace Zarvo::Test {
namespace {

using namespace Orvane;

// Blocks until the task that the thread runs is cancelled.
void SleepUntilCancelled() {
    for (;;) {
        CancellableSleep(INFINITE);
    }
}

TEST(TaskThread, RunsTheBodyAsATaskOnAnotherThread) {
    DWORD bodyThread = 0;
    std::shared_ptr<Internal::FutureState> current;
    TaskThread thread([&] {
        bodyThread = ::GetCurrentThreadId();
        current = Internal::GetFutureObject();
    });
    thread.Join();

    EXPECT_NE(bodyThread, ::GetCurrentThreadId());
    EXPECT_EQ(bodyThread, thread.ThreadId());
    EXPECT_EQ(current, thread.Future());
}

TEST(TaskThread, IsBusyAsSoonAsItIsConstructed) {
    Gate gate;
    TaskThread thread([&] { gate.Wait(); }, L"busy one");

    EXPECT_TRUE(thread.Future()->IsBusy());
    EXPECT_TRUE(thread.IsRunning());
    EXPECT_EQ(std::wstring(thread.GetTask().GetName()), L"busy one");
    gate.Open();
    EXPECT_TRUE(thread.EndedNormally());
    EXPECT_FALSE(thread.IsRunning());
}

TEST(TaskThread, CancelEndsABodyThatSleeps) {
    TaskThread thread(SleepUntilCancelled);

    thread.Cancel();
    EXPECT_TRUE(thread.EndedCancelled());
    EXPECT_FALSE(thread.EndedNormally());
    EXPECT_FALSE(thread.EndedWithError());
}

TEST(TaskThread, TellsAnErrorFromTheOtherEnds) {
    TaskThread thread([] { throw CancelledException(); });

    EXPECT_TRUE(thread.EndedWithError());
    EXPECT_FALSE(thread.EndedNormally());
    EXPECT_FALSE(thread.EndedCancelled());
}

TEST(TaskThread, TellsANormalEndFromTheOtherEnds) {
    TaskThread thread([] {});

    EXPECT_TRUE(thread.EndedNormally());
    EXPECT_FALSE(thread.EndedWithError());
    EXPECT_FALSE(thread.EndedCancelled());
}

TEST(TaskThread, DestructorCancelsAndJoins) {
    std::shared_ptr<Internal::FutureImpl<void>> future;
    {
        const TaskThread thread(SleepUntilCancelled);
        future = thread.Future();
    }
    EXPECT_TRUE(future->IsCancelled());
}

}  // namespace
}  // namespace Zarvo::Test
