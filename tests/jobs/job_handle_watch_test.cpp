// CancelWhen(): a job leaves when a handle is signalled.
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job_group.h"
#include "tests/jobs/full_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/jobs/leaves_nothing.h"
#include "tests/jobs/own_event.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/resource_probe.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

class JobHandleWatch : public JobTest {};

TEST_F(JobHandleWatch, AsksWhenAnEventIsSet) {
    const OwnEvent event;
    auto job = RunSleeper();
    job.CancelWhen(event.Get());
    Sleep(20);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    event.Set();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Signalled);
    EXPECT_EQ(ToText(job.GetCancelReason()), L"asked because a handle that it watches was signalled");
}

TEST_F(JobHandleWatch, AsksAtOnceIfTheEventIsSet) {
    const OwnEvent event;
    event.Set();
    const ThreadStarts starts;
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd);
    const int before = starts.Count();
    job.CancelWhen(event.Get());
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Signalled);
    EXPECT_EQ(starts.Count(), before + 1);  // the watcher's, for the job was asked; none for the handle
    mayEnd->Open();
    job.Get();
}

TEST_F(JobHandleWatch, TakesOneSignalOfAnAutoResetEvent) {
    const OwnEvent event(OwnEvent::Kind::AutoReset);
    auto first = RunSleeper();
    auto second = RunSleeper();
    first.CancelWhen(event.Get());
    second.CancelWhen(event.Get());
    event.Set();
    EXPECT_TRUE(Eventually([&] { return first.IsReady() || second.IsReady(); }));
    Sleep(20);
    EXPECT_NE(first.IsReady(), second.IsReady());
    event.Set();
    first.Wait();
    second.Wait();
}

TEST_F(JobHandleWatch, AsksWhenAThreadEnds) {
    auto job = RunSleeper();
    Gate mayEnd;
    HANDLE thread = nullptr;
    Gate isThere;
    PlainThread watched([&] {
        DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread, SYNCHRONIZE, FALSE, 0);
        isThere.Open();
        mayEnd.Wait();
    });
    isThere.Wait();
    job.CancelWhen(thread);
    CloseHandle(thread);
    mayEnd.Open();
    EXPECT_THROW(job.Get(), CancelledException);
}

TEST_F(JobHandleWatch, HandleMayBeClosed) {
    OwnEvent event;
    HANDLE other = nullptr;
    DuplicateHandle(GetCurrentProcess(), event.Get(), GetCurrentProcess(), &other, 0, FALSE, DUPLICATE_SAME_ACCESS);
    auto job = RunSleeper();
    job.CancelWhen(event.Get());
    event.Close();
    SetEvent(other);
    CloseHandle(other);
    EXPECT_THROW(job.Get(), CancelledException);
}

TEST_F(JobHandleWatch, OfSeveralHandlesEachCounts) {
    const std::array<OwnEvent, 3> events;
    for (const OwnEvent& last : events) {
        auto job = RunSleeper();
        for (const OwnEvent& event : events) {
            job.CancelWhen(event.Get());
        }
        last.Set();
        EXPECT_THROW(job.Get(), CancelledException);
        ResetEvent(last.Get());
    }
}

TEST_F(JobHandleWatch, AsksAGroup) {
    const OwnEvent event;
    JobGroup group(L"group");
    auto first = group.Run(L"first", [] { SleepUntilAsked(); });
    auto second = group.Run(L"second", [] { SleepUntilAsked(); });
    group.CancelWhen(event.Get());
    event.Set();
    EXPECT_THROW(group.Wait(), CancelledException);
    EXPECT_EQ(group.GetCancelReason().cause, CancelCause::Signalled);
    EXPECT_EQ(first.GetCancelReason().cause, CancelCause::Signalled);
}

TEST_F(JobHandleWatch, HasRoomForManyHandles) {
    constexpr std::size_t kMany = 150;
    std::vector<std::unique_ptr<OwnEvent>> events;
    std::vector<GroupJob<void>> jobs;
    JobGroup group(L"group", 1);
    group.Run(L"first", [] { SleepUntilAsked(); });
    const ThreadStarts starts;
    for (std::size_t i = 0; i < kMany; ++i) {
        events.push_back(std::make_unique<OwnEvent>());
        jobs.push_back(group.Run(L"waits", [] {}));
        jobs.back().CancelWhen(events.back()->Get());
    }
    EXPECT_EQ(starts.Count(), 3);
    for (const std::size_t i : {std::size_t{0}, std::size_t{61}, std::size_t{62}, kMany - 1}) {
        events[i]->Set();
        EXPECT_THROW(jobs[i].Get(), CancelledException) << i;
    }
    EXPECT_EQ(group.Counts().cancelled, 4U);
    group.Cancel();
}

TEST_F(JobHandleWatch, NeedsNoWorkerOfThePool) {
    FullPool pool;
    const OwnEvent event;
    bool isDestroyed = false;
    auto job = Run(L"waits", [end = AtEnd([&] { isDestroyed = true; })] {});
    job.CancelWhen(event.Get());
    event.Set();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_TRUE(isDestroyed);
}

TEST_F(JobHandleWatch, OfAnEndedJobIsNothing) {
    const OwnEvent event;
    auto job = Run(L"ended", [] { return 7; });
    job.Wait();
    job.CancelWhen(event.Get());
    event.Set();
    job.CancelWhen(event.Get());
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    EXPECT_EQ(job.Get(), 7);
}

TEST_F(JobHandleWatch, LeavesTheSignalThatComesAfterTheJob) {
    const OwnEvent event(OwnEvent::Kind::AutoReset);
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd);
    job.CancelWhen(event.Get());
    mayEnd->Open();
    job.Get();
    // The thread has looked at its handles anew when it has asked for another one.
    const OwnEvent other;
    auto next = RunSleeper();
    next.CancelWhen(other.Get());
    other.Set();
    next.Wait();
    event.Set();
    Sleep(50);
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_OBJECT_0);
}

TEST_F(JobHandleWatch, LeavesNothingWhenTheJobHasEnded) {
    const OwnEvent event;
    ExpectItLeavesNothing([&event] {
        const auto mayEnd = std::make_shared<Gate>();
        auto job = RunHeld(mayEnd);
        job.CancelWhen(event.Get());
        job.CancelWhen(event.Get());
        mayEnd->Open();
        job.Get();
        JobGroup group(L"group");
        group.CancelWhen(event.Get());
    });
}

TEST(JobHandleWatches, EndWithTheLastUninitialisation) {
    const OwnEvent event;
    const ThreadStarts starts;
    const auto once = [&event] {
        const ConcurrencyLifetime lifetime;
        auto job = RunSleeper();
        job.CancelWhen(event.Get());
    };
    once();
    const int first = starts.Count();
    const ResourceProbe probe;
    once();
    EXPECT_EQ(starts.Count(), 2 * first);  // none of the first threads was left
    Resources growth;
    EXPECT_TRUE(Eventually([&] {
        growth = probe.Growth();
        return growth.handles <= 0;
    })) << growth;
}

}  // namespace
