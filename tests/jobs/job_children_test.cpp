// What a run has started is asked with it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/gate.h"
#include "tests/threadpool/at_end.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr std::size_t kChildren = 100;

// Starts children each of which leaves when all have been asked, and not before.
class Family {
  public:
    // In the parent's run. Returns when it is asked.
    void Live() {
        std::vector<Job<void>> children;
        for (std::size_t i = 0; i < kChildren; ++i) {
            children.push_back(RunInNewThread(L"child", [this] {
                m_begun.Arrive();
                try {
                    SleepUntilAsked();
                } catch (const CancelRequestedException&) {
                    m_causes += CancelReasonOfThisJob().cause == CancelCause::Parent ? 1 : 0;
                    m_asked.Meet();
                    throw;
                }
            }));
        }
        m_begun.Wait();
        m_isComplete.Open();
        SleepUntilAsked();
    }

    void WaitUntilComplete() { m_isComplete.Wait(); }
    void WaitUntilAllAreAsked() { m_asked.Wait(); }
    std::size_t Causes() const { return m_causes; }

  private:
    Gate m_isComplete;
    Countdown m_begun{kChildren};
    Countdown m_asked{kChildren};
    std::atomic<std::size_t> m_causes = 0;
};

class JobChildren : public JobTest {};

TEST_F(JobChildren, OfAJobAreAllAskedBeforeAnyHasLeft) {
    Family family;
    auto parent = Run(L"parent", [&family] { family.Live(); });
    family.WaitUntilComplete();
    parent.Cancel();
    EXPECT_THROW(parent.Get(), CancelledException);
    EXPECT_EQ(family.Causes(), kChildren);
}

TEST_F(JobChildren, OfADroppedJobAreAllAskedBeforeAnyHasLeft) {
    Family family;
    {
        const auto parent = RunInNewThread(L"parent", [&family] { family.Live(); });
        family.WaitUntilComplete();
    }
    EXPECT_EQ(family.Causes(), kChildren);
}

TEST_F(JobChildren, OfAStatedTaskAreAllAskedBeforeAnyHasLeft) {
    Family family;
    Task parent = MakeTask(L"parent", [&family] { family.Live(); });
    GlobalThreadPool::Queue(parent);
    family.WaitUntilComplete();
    parent.Cancel();
    family.WaitUntilAllAreAsked();
    parent.Wait();
    EXPECT_EQ(family.Causes(), kChildren);
}

TEST_F(JobChildren, OfAScheduledRunAreAllAskedBeforeAnyHasLeft) {
    Family family;
    {
        auto tracker = Schedule(L"parent", 0s, 0s, [&family] { family.Live(); });
        family.WaitUntilComplete();
        tracker.Cancel();
        family.WaitUntilAllAreAsked();
    }
    EXPECT_EQ(family.Causes(), kChildren);
}

// The parent in the middle does not hear the request before the child has.
TEST_F(JobChildren, OfChildrenAreAskedToo) {
    const auto begun = std::make_shared<Gate>();
    const auto isAsked = std::make_shared<Gate>();
    auto grandparent = Run(L"grandparent", [begun, isAsked] {
        const auto parent = RunInNewThread(L"parent", [begun, isAsked] {
            const auto child = RunInNewThread(L"child", [begun, isAsked] {
                begun->Open();
                try {
                    SleepUntilAsked();
                } catch (const CancelRequestedException&) {
                    isAsked->Open();
                    throw;
                }
            });
            isAsked->Wait();
        });
        SleepUntilAsked();
    });
    begun->Wait();
    grandparent.Cancel();
    isAsked->Wait();
    EXPECT_THROW(grandparent.Get(), CancelledException);
}

TEST_F(JobChildren, ThatAreStartedInAnAskedRunDoNotRun) {
    Job<void> parent;
    const auto mayStart = std::make_shared<Gate>();
    std::atomic<bool> hasRun = false;
    parent = Run(L"parent", [&, mayStart] {
        mayStart->Wait();
        parent.Cancel();
        const DWORD thread = GetCurrentThreadId();
        DWORD destroyedOn = 0;
        auto child = Orvane::Run(
            L"child", [&hasRun, end = AtEnd([&] { destroyedOn = GetCurrentThreadId(); })] { hasRun = true; });
        EXPECT_TRUE(child.IsReady());
        EXPECT_EQ(destroyedOn, thread);
        EXPECT_EQ(child.GetCancelReason().cause, CancelCause::Parent);
        EXPECT_EQ(child.GetCancelReason().by, L"parent");
        auto dedicated = RunInNewThread(L"child", [&hasRun] { hasRun = true; });
        EXPECT_TRUE(dedicated.IsReady());
    });
    mayStart->Open();
    parent.Get();
    EXPECT_FALSE(hasRun);
}

TEST_F(JobChildren, ThatAreDetachedOrPostedAreNotAsked) {
    const auto begun = std::make_shared<Countdown>(2);
    const auto mayEnd = std::make_shared<Gate>();
    const auto ended = std::make_shared<Countdown>(2);
    std::atomic<int> asked = 0;
    auto parent = Run(L"parent", [&asked, begun, mayEnd, ended] {
        const auto work = [&asked, begun, mayEnd, ended] {
            begun->Arrive();
            mayEnd->Wait();
            asked += IsCancellationRequested() ? 1 : 0;
            ended->Arrive();
        };
        auto detached = Orvane::Run(L"detached", work);
        detached.Detach();
        Post(L"posted", work);
        SleepUntilAsked();
    });
    begun->Wait();
    parent.Cancel();
    parent.Wait();
    mayEnd->Open();
    ended->Wait();
    EXPECT_EQ(asked, 0);
}

TEST_F(JobChildren, ThatOutliveTheRunAreNotAskedAfterIt) {
    const auto mayEnd = std::make_shared<Gate>();
    Job<void> child;
    auto parent = Run(L"parent", [&child, mayEnd] { child = RunHeld(mayEnd); });
    parent.Wait();
    parent.Cancel();
    parent = {};
    EXPECT_EQ(child.GetCancelReason().cause, CancelCause::None);
    mayEnd->Open();
    child.Get();
}

TEST_F(JobChildren, WhoseHandlesLeftTheRunAreAskedWhileItLasts) {
    const auto begun = std::make_shared<Gate>();
    Job<void> child;
    auto parent = Run(L"parent", [&child, begun] {
        child = RunSleeper(L"child");
        begun->Open();
        SleepUntilAsked();
    });
    begun->Wait();
    parent.Cancel();
    EXPECT_THROW(child.Get(), CancelledException);
    EXPECT_EQ(child.GetCancelReason().cause, CancelCause::Parent);
    EXPECT_EQ(child.GetCancelReason().by, L"parent");
}

// Those that have ended are forgotten: the list does not grow with the run.
TEST_F(JobChildren, ThatHaveEndedAreNotAsked) {
    const auto begun = std::make_shared<Gate>();
    Job<int> child;
    auto parent = Run(L"parent", [&child, begun] {
        child = Orvane::Run(L"child", [] { return 7; });
        child.Wait();
        begun->Open();
        SleepUntilAsked();
    });
    begun->Wait();
    parent.Cancel();
    parent.Wait();
    EXPECT_EQ(child.GetCancelReason().cause, CancelCause::None);
    EXPECT_EQ(child.Get(), 7);
}

TEST_F(JobChildren, OfATaskThatRunsInsideAJobBelongToTheTask) {
    const auto begun = std::make_shared<Gate>();
    std::shared_ptr<Job<void>> child = std::make_shared<Job<void>>();
    auto outer = Run(L"outer", [child, begun] {
        Task inner = MakeTask(L"inner", [child] { *child = RunSleeper(L"child"); });
        inner();
        begun->Open();
        SleepUntilAsked();
    });
    begun->Wait();
    outer.Cancel();
    outer.Wait();
    EXPECT_EQ(child->GetCancelReason().cause, CancelCause::None);
    child->Cancel();
    EXPECT_THROW(child->Get(), CancelledException);
}

}  // namespace
