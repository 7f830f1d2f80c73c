// EndEvent(): the end of a job as a handle of the platform.
#include <gtest/gtest.h>

#include <memory>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job.h"
#include "tests/jobs/full_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/resource_probe.h"
#include "tests/threadpool/at_end.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

constexpr DWORD kPatienceMs = 30'000;

bool IsSet(HANDLE event) {
    return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

class JobEndEvent : public JobTest {};

TEST_F(JobEndEvent, IsSetByTheEndAndStaysSet) {
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd);
    const HANDLE event = job.EndEvent();
    ASSERT_NE(event, nullptr);
    EXPECT_FALSE(IsSet(event));
    mayEnd->Open();
    EXPECT_EQ(WaitForSingleObject(event, kPatienceMs), WAIT_OBJECT_0);
    EXPECT_TRUE(job.IsReady());
    EXPECT_TRUE(IsSet(event));
    job.Get();
    EXPECT_TRUE(IsSet(event));
}

TEST_F(JobEndEvent, OfAnEndedJobIsSetFromTheStart) {
    auto job = Run(L"ended", [] {});
    job.Wait();
    EXPECT_TRUE(IsSet(job.EndEvent()));
}

TEST_F(JobEndEvent, IsMadeOnce) {
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd);
    const HANDLE event = job.EndEvent();
    EXPECT_EQ(job.EndEvent(), event);
    mayEnd->Open();
    job.Wait();
    EXPECT_EQ(job.EndEvent(), event);
}

TEST_F(JobEndEvent, IsSetWhenTheCallableHasGoneNotBefore) {
    const auto dying = std::make_shared<Gate>();
    const auto mayDie = std::make_shared<Gate>();
    auto job = Run(L"dies slowly", [end = AtEnd([=] {
                                        dying->Open();
                                        mayDie->Wait();
                                    })] {});
    const HANDLE event = job.EndEvent();
    dying->Wait();
    EXPECT_EQ(WaitForSingleObject(event, 30), static_cast<DWORD>(WAIT_TIMEOUT));
    mayDie->Open();
    EXPECT_EQ(WaitForSingleObject(event, kPatienceMs), WAIT_OBJECT_0);
    EXPECT_TRUE(job.IsReady());
}

TEST_F(JobEndEvent, IsSetForAJobThatNeverRan) {
    FullPool pool;
    auto job = Run(L"waits", [] {});
    const HANDLE event = job.EndEvent();
    EXPECT_FALSE(IsSet(event));
    job.Cancel();
    EXPECT_TRUE(IsSet(event));
}

TEST_F(JobEndEvent, IsSetForAFailureAndACancellation) {
    auto failed = Run(L"fails", [] { throw 42; });
    EXPECT_EQ(WaitForSingleObject(failed.EndEvent(), kPatienceMs), WAIT_OBJECT_0);
    auto cancelled = RunSleeper();
    const HANDLE event = cancelled.EndEvent();
    cancelled.Cancel();
    EXPECT_EQ(WaitForSingleObject(event, kPatienceMs), WAIT_OBJECT_0);
}

TEST_F(JobEndEvent, CanBeWaitedForBesideOtherHandles) {
    const HANDLE other = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const auto mayEnd = std::make_shared<Gate>();
    auto held = RunHeld(mayEnd);
    auto ended = Run(L"ends", [] {});
    const HANDLE handles[] = {other, held.EndEvent(), ended.EndEvent()};
    EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, kPatienceMs), WAIT_OBJECT_0 + 2);
    EXPECT_EQ(CancellableWaitForMultipleObjects(3, handles, kPatienceMs), WAIT_OBJECT_0 + 2);
    mayEnd->Open();
    EXPECT_EQ(WaitForMultipleObjects(2, handles + 1, TRUE, kPatienceMs), WAIT_OBJECT_0);
    CloseHandle(other);
}

TEST_F(JobEndEvent, GoesWithTheJob) {
    const auto once = [] {
        auto job = Run(L"job", [] {});
        job.EndEvent();
        job.Get();
        auto detached = Run(L"detached", [] {});
        detached.EndEvent();
        detached.Detach();
    };
    once();
    const ResourceProbe probe;
    for (int i = 0; i < 10; ++i) {
        once();
    }
    EXPECT_TRUE(Eventually([&] { return probe.Growth().handles <= 0; })) << probe.Growth();
}

TEST_F(JobEndEvent, ThatThePlatformRefusesIsASystemErrorAndChangesNothing) {
    auto job = RunSleeper();
    {
        const ImportPatch noEvents(
            LibraryUnderTest(), "CreateEventW", +[](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) -> HANDLE {
                SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                return nullptr;
            });
        EXPECT_THROW(job.EndEvent(), std::system_error);
    }
    EXPECT_FALSE(IsSet(job.EndEvent()));
    job.Cancel();
    EXPECT_EQ(WaitForSingleObject(job.EndEvent(), kPatienceMs), WAIT_OBJECT_0);
}

}  // namespace
