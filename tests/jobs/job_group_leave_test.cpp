// JobGroup::Leave(): what it ends and destroys, and what it says is still held.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/runs.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/failure_handler.h"
#include "tests/jobs/blocked.h"
#include "tests/jobs/held_handler.h"
#include "tests/jobs/held_skip.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"

namespace {

using namespace std::chrono_literals;
using namespace Orvane;
using namespace Zarvo::Test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Its text is a sign of life: of each copy that exists.
class Failure : public std::exception {
  public:
    explicit Failure(std::shared_ptr<int> sign) : m_sign(std::move(sign)) {}

    const char* what() const noexcept override { return "of the test"; }

  private:
    std::shared_ptr<int> m_sign;
};

TEST(LeavingGroup, WithoutJobsHoldsNothing) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    EXPECT_TRUE(group.Leave().IsNone());
    EXPECT_TRUE(group.Leave().IsNone());
}

TEST(LeavingGroup, EndsAllItsJobsAndDestroysTheirCallables) {
    const ConcurrencyLifetime lifetime;
    const auto captured = std::make_shared<int>(1);
    Blocked blocked;
    JobGroup group(L"group", 2);
    for (int i = 0; i < 5; ++i) {
        group.Run(L"runs or waits", [&blocked, captured] { blocked.Stay(); });
    }
    group.RunInNewThread(L"in a thread", [&blocked, captured] { blocked.Stay(); });
    ASSERT_TRUE(blocked.Enter(3));

    const ModuleUse use = group.Leave();

    EXPECT_TRUE(use.IsNone()) << testing::PrintToString(ToText(use));
    EXPECT_EQ(captured.use_count(), 1);
    EXPECT_EQ(group.Counts().cancelled, 6U);
    EXPECT_EQ(group.GetCancelReason().cause, CancelCause::Group);
}

TEST(LeavingGroup, IsSpent) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    static_cast<void>(group.Leave());
    std::atomic<bool> hasRun = false;
    auto late = group.Run(L"late", [&hasRun] { hasRun = true; });
    EXPECT_THROW(late.Get(), CancelledException);
    EXPECT_FALSE(hasRun);
}

TEST(LeavingGroup, DestroysTheFailuresThatItKeeps) {
    const ConcurrencyLifetime lifetime;
    const auto sign = std::make_shared<int>(1);
    JobGroup group(L"group");
    group.Run(L"fails", [sign] { throw Failure(sign); });
    EXPECT_THROW(group.Wait(), Failure);
    ASSERT_GT(sign.use_count(), 1);

    EXPECT_TRUE(group.Leave().IsNone());

    EXPECT_EQ(sign.use_count(), 1);
    EXPECT_THAT(group.Failures(), IsEmpty());
    EXPECT_EQ(group.Counts().failed, 1U);
}

TEST(LeavingGroup, DestroysTheFailureThatAHandleCouldRead) {
    const ConcurrencyLifetime lifetime;
    const auto sign = std::make_shared<int>(1);
    JobGroup group(L"group");
    auto job = group.Run(L"fails", [sign] { throw Failure(sign); });
    job.Wait();

    EXPECT_TRUE(group.Leave().IsNone());

    EXPECT_EQ(sign.use_count(), 1);
    EXPECT_THAT(MessageOf<std::logic_error>([&job] { job.Get(); }), HasSubstr("has left"));
}

std::atomic<int> g_unread = 0;

TEST(LeavingGroup, ReportsAFailureThatNobodyHasRead) {
    const ConcurrencyLifetime lifetime;
    g_unread = 0;
    SetFailureHandler([](const UnreadFailure&) { ++g_unread; });
    {
        JobGroup group(L"group");
        group.Run(L"fails", [] { throw std::runtime_error("unread"); });
        EXPECT_TRUE(Eventually([&group] { return group.Counts().failed == 1; }));
        static_cast<void>(group.Leave());
        EXPECT_EQ(g_unread, 1);
    }
    EXPECT_EQ(g_unread, 1);
    SetFailureHandler(nullptr);
}

TEST(LeavingGroup, OfTheProgramItselfHoldsNothing) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    auto job = group.Run(L"result", [] { return std::string("value"); });
    auto alone = RunSleeper(L"alone");
    job.Wait();
    EXPECT_TRUE(group.Leave().IsNone());
    EXPECT_EQ(job.Get(), "value");
}

TEST(LeavingGroup, DestroysTheCallablesOfItsSchedules) {
    const ConcurrencyLifetime lifetime;
    const auto captured = std::make_shared<int>(1);
    const auto begun = std::make_shared<Gate>();
    JobGroup group(L"group");
    group.Schedule(L"under way", 0s, 0s, [begun, captured] {
        begun->Open();
        SleepUntilAsked();
    });
    group.Schedule(L"recurrent", 0s, 1ms, [captured] {});
    group.Schedule(L"not due", 24h, 0s, [captured] {});
    begun->Wait();

    EXPECT_TRUE(group.Leave().IsNone());

    EXPECT_EQ(captured.use_count(), 1);
}

TEST(GroupSchedule, ThatHasEndedLosesItsCallableAtOnce) {
    const ConcurrencyLifetime lifetime;
    const auto captured = std::make_shared<int>(1);
    JobGroup group(L"group");
    group.Schedule(L"once", 0s, 0s, [captured] {});
    group.Schedule(L"fails", 0s, 1ms, [captured] { throw std::runtime_error("stop"); }, OnFailure::Stop);
    EXPECT_TRUE(Eventually([&captured] { return captured.use_count() == 1; }));
}

TEST(LeavingGroup, InsideItsOwnJobThrows) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    auto job = group.Run(L"own", [&group] { static_cast<void>(group.Leave()); });
    EXPECT_THROW(job.Get(), std::system_error);
}

TEST(LeavingGroup, IsSpentAndSaysThatItsFailuresAreGone) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    group.Run(L"fails", [] { throw std::runtime_error("gone"); });
    EXPECT_TRUE(Eventually([&group] { return group.Counts().failed == 1; }));
    static_cast<void>(group.Leave());
    EXPECT_THROW(group.Wait(), std::logic_error);
}

JobGroup* g_groupThatHandlerLeaves = nullptr;

TEST(LeavingGroup, InTheFailureHandlerThatItCallsReportsTheFailureOnce) {
    const ConcurrencyLifetime lifetime;
    g_unread = 0;
    JobGroup group(L"group");
    g_groupThatHandlerLeaves = &group;
    SetFailureHandler([](const UnreadFailure&) {
        ++g_unread;
        static_cast<void>(g_groupThatHandlerLeaves->Leave());
    });
    group.Run(L"fails", [] { throw std::runtime_error("unread"); });
    EXPECT_TRUE(Eventually([&group] { return group.Counts().failed == 1; }));
    EXPECT_TRUE(group.Leave().IsNone());
    EXPECT_EQ(g_unread, 1);
    SetFailureHandler(nullptr);
}

TEST(LeavingGroup, IsNoCancellationPoint) {
    const ConcurrencyLifetime lifetime;
    Gate begun;
    std::atomic<bool> hasLeft = false;
    auto job = Orvane::Run(L"asked", [&] {
        JobGroup group(L"group");
        begun.Open();
        try {
            SleepUntilAsked();
        } catch (const CancelRequestedException&) {
            hasLeft = group.Leave().IsNone();
            throw;
        }
    });
    begun.Wait();
    job.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_TRUE(hasLeft);
}

TEST(LeavingGroup, WaitsForTheThreadThatHasEndedAJob) {
    const ConcurrencyLifetime lifetime;
    HeldHandler handler;
    JobGroup group(L"group");
    group.Schedule(L"fails", 0s, 24h, [] { throw std::runtime_error("for the handler"); });
    handler.AwaitCall();
    // The end is known, and the thread that ended the job is held behind it.
    ASSERT_EQ(group.Counts().failed, 1U);
    std::atomic<bool> hasLeft = false;
    Thread leaves([&] {
        EXPECT_TRUE(group.Leave().IsNone());
        hasLeft = true;
    });
    EXPECT_TRUE(Eventually([&group] { return group.GetCancelReason().cause == CancelCause::Group; }));
    Sleep(50);
    EXPECT_FALSE(hasLeft);
    const auto letGo = std::chrono::steady_clock::now();
    handler.LetGo();
    leaves.join();
    EXPECT_TRUE(handler.HasReturned());
    EXPECT_LT(std::chrono::steady_clock::now() - letGo, 20s);  // by a signal: without one it looks again after 30 s
}

// A worker that is about to add a run: held where it reports that it adds none.
TEST(LeavingGroup, WaitsForTheWorkerThatIsAboutToAddARunOfASchedule) {
    const ConcurrencyLifetime lifetime;
    HeldSkip held;
    Gate begun;  // a run that is asked before is cancelled
    Gate mayEnd;
    JobGroup group(L"group");
    group.Schedule(L"beats", 0s, 1ms, [&] {
        begun.Open();
        mayEnd.Wait();
    });
    begun.Wait();
    held.AwaitCall();
    std::atomic<bool> hasLeft = false;
    Thread leaves([&] {
        EXPECT_TRUE(group.Leave().IsNone());
        hasLeft = true;
    });
    EXPECT_TRUE(Eventually([&group] { return group.GetCancelReason().cause == CancelCause::Group; }));
    mayEnd.Open();
    EXPECT_TRUE(Eventually([&group] { return group.Counts().done == 1; }));
    Sleep(50);
    EXPECT_FALSE(hasLeft);
    held.LetGo();
    leaves.join();
}

bool IsInADestructor(const std::wstring& path) {
    const auto runs = ListRuns();
    return std::ranges::any_of(runs, [&path](const RunInfo& run) {
        return run.path == path && run.wait.starts_with(L"a destructor that waits");
    });
}

// The job of the group waits for the other one, which would wait for the group.
TEST(LeavingGroup, InAJobThatAJobOfTheGroupWaitsForThrows) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    Gate begun;  // a job that is dropped before would not run
    std::atomic<bool> hasThrown = false;
    Job<void> lets = RunInNewThread(L"lets it leave", [&] {
        begun.Open();
        EXPECT_TRUE(Eventually([] { return IsInADestructor(L"group > drops"); }));
        try {
            static_cast<void>(group.Leave());
        } catch (const std::system_error& error) {
            hasThrown = error.code() == std::errc::resource_deadlock_would_occur;
        }
    });
    begun.Wait();
    auto drops = group.RunInNewThread(L"drops", [&lets] { lets = {}; });
    drops.Wait();
    EXPECT_TRUE(hasThrown);
    EXPECT_TRUE(group.Leave().IsNone());
}

JobGroup* g_groupOfHandler = nullptr;
std::atomic<bool> g_hasThrown = false;

std::shared_ptr<Gate> g_laterRunMayEnd;

// The first run fails, and its thread is held behind that; a later run is inside its callable when the group is asked.
TEST(GroupSchedule, DoesNotLoseItsCallableToAnEarlierRunWhileALaterOneIsInIt) {
    const ConcurrencyLifetime lifetime;
    HeldHandler handler;
    g_laterRunMayEnd = std::make_shared<Gate>();
    const auto isInside = std::make_shared<Gate>();
    const auto captured = std::make_shared<int>(1);
    std::atomic<bool> isWhole = false;
    JobGroup group(L"group");
    group.Schedule(L"twice", 0s, 1ms, [isInside, captured, &isWhole, run = 0]() mutable {
        if (++run == 1) {
            throw std::runtime_error("the first one");
        }
        isInside->Open();
        g_laterRunMayEnd->Wait();
        isWhole = isWhole || captured.use_count() == 2;
    });
    handler.AwaitCall();
    isInside->Wait();
    group.Cancel();
    handler.LetGo();
    EXPECT_TRUE(Eventually([&handler] { return handler.HasReturned(); }));
    g_laterRunMayEnd->Open();
    EXPECT_TRUE(group.Leave().IsNone());
    EXPECT_TRUE(isWhole);
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(LeavingGroup, OnTheThreadThatEndsAJobThrowsInsteadOfWaitingForItself) {
    const ConcurrencyLifetime lifetime;
    g_hasThrown = false;
    JobGroup group(L"group");
    g_groupOfHandler = &group;
    SetFailureHandler([](const UnreadFailure&) {
        try {
            static_cast<void>(g_groupOfHandler->Leave());
        } catch (const std::system_error&) {
            g_hasThrown = true;
        }
    });
    group.Schedule(L"fails", 0s, 24h, [] { throw std::runtime_error("for the handler"); });
    EXPECT_TRUE(Eventually([] { return g_hasThrown.load(); }));
    EXPECT_TRUE(group.Leave().IsNone());
    SetFailureHandler(nullptr);
}

TEST(DroppedGroup, WhoseLastReferenceACallableOfItHasDoesNotWaitForItself) {
    const ConcurrencyLifetime lifetime;
    Gate mayGo;
    auto group = std::make_shared<JobGroup>(L"group", 1);
    const std::weak_ptr<JobGroup> seen = group;
    auto first = group->Run(L"fails", [&mayGo] {
        mayGo.Wait();
        throw std::runtime_error("ends the others");
    });
    group->Run(L"waits", [kept = group] {});
    group = nullptr;
    mayGo.Open();
    EXPECT_THROW(first.Get(), std::runtime_error);
    EXPECT_TRUE(Eventually([&seen] { return seen.expired(); }));
}

}  // namespace
