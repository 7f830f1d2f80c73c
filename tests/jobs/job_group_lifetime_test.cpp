// Who owns a group, what its end does, and jobs that wait for others of their group.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/blocked.h"
#include "tests/jobs/turnstile.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_ticks.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/task_thread.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(JobGroupEnd, AsksAllAndWaitsForThem) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    bool ran = false;
    std::optional<GroupJob<void>> first;
    std::optional<GroupJob<void>> second;
    {
        JobGroup group(L"group", 2);
        first = group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        second = group.Run(L"waiting", [&ran] { ran = true; });
        ASSERT_TRUE(blocked.Enter(2));
    }
    EXPECT_EQ(blocked.Left(), 2);
    EXPECT_FALSE(ran);
    EXPECT_EQ(first->GetCancelReason().cause, CancelCause::Dropped);
    EXPECT_EQ(second->GetCancelReason().cause, CancelCause::Dropped);
    EXPECT_THROW(second->Get(), CancelledException);
}

TEST(JobGroupEnd, WaitsForAJobThatDoesNotAnswerAtOnce) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    auto group = std::make_unique<JobGroup>(L"group");
    group->Run(L"held", [&turnstile] { turnstile.Pass(); });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    const BackgroundCall drop([&] { group.reset(); });
    std::this_thread::sleep_for(20ms);
    EXPECT_TRUE(drop.IsRunning());
    turnstile.LetAllGo();
    EXPECT_TRUE(drop.Ends());
}

// In the job itself, or in a run on top of it.
void ExpectThatTheDropAsksAndDoesNotWait(const std::function<void(std::unique_ptr<JobGroup>&)>& drop) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    std::atomic<bool> wasAsked = false;
    std::atomic<bool> ended = false;
    Gate isThere;
    auto group = std::make_unique<JobGroup>(L"group");
    group->Run(L"other", [&blocked] { blocked.Stay(); });
    ASSERT_TRUE(blocked.Enter(1));
    auto job = group->Run(L"drops", [&] {
        isThere.Wait();
        drop(group);
        wasAsked = IsCancellationRequested();
        ended = true;
    });
    isThere.Open();
    job.Wait();
    EXPECT_TRUE(wasAsked);
    EXPECT_TRUE(ended);
    EXPECT_EQ(group, nullptr);
    EXPECT_TRUE(Eventually([&] { return blocked.Left() == 1; }));
}

TEST(JobGroupEnd, InsideAJobOfItsOwnAsksAndDoesNotWait) {
    ExpectThatTheDropAsksAndDoesNotWait([](std::unique_ptr<JobGroup>& group) { group.reset(); });
}

TEST(JobGroupEnd, InAnInnerRunOnAJobsThreadAsksAndDoesNotWait) {
    ExpectThatTheDropAsksAndDoesNotWait(
        [](std::unique_ptr<JobGroup>& group) { MakeTask(L"inner", [&group] { group.reset(); })(); });
}

TEST(JobGroupEnd, InARunThatWasAskedStillWaits) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    std::atomic<bool> isInside = false;
    auto parent = Orvane::Run(L"parent", [&] {
        JobGroup group(L"group");
        group.Run(L"held", [&turnstile] { turnstile.Pass(); });
        group.Schedule(L"later", 1h, 1h, [] {});
        isInside = true;
        group.Wait();
    });
    ASSERT_TRUE(Eventually([&] { return isInside && turnstile.Inside() == 1; }));
    parent.Cancel();
    EXPECT_FALSE(parent.WaitFor(20ms));
    turnstile.LetAllGo();
    EXPECT_THROW(parent.Get(), CancelledException);
}

TEST(JobGroupOwner, ThatIsAskedPassesTheRequestToAllJobs) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    CancelReason reason;
    Job<void> parent = Orvane::Run(L"parent", [&] {
        JobGroup group(L"group", 2);
        const auto first = group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        group.Run(L"waiting", [] {});
        try {
            first.Wait();
        } catch (const CancelRequestedException&) {
            // The request wakes this run before it comes to the group.
            static_cast<void>(Eventually([&group] { return group.GetCancelReason().cause != CancelCause::None; }));
            reason = group.GetCancelReason();
            throw;
        }
    });
    ASSERT_TRUE(blocked.Enter(2));
    parent.Cancel();
    EXPECT_TRUE(Eventually([&] { return blocked.Left() == 2; }));
    EXPECT_THROW(parent.Get(), CancelledException);
    EXPECT_EQ(reason.cause, CancelCause::Parent);
    EXPECT_EQ(reason.by, L"parent");
}

// Asked while its owner is elsewhere, not in a wait of the group.
TEST(JobGroupOwner, MayBeATaskAndBusyWithOtherThings) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    Gate end;
    TaskThread owner([&] {
        JobGroup group(L"group");
        group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        end.Wait();
    });
    ASSERT_TRUE(blocked.Enter(1));
    owner.Cancel();
    EXPECT_TRUE(Eventually([&] { return blocked.Left() == 1; }));
    end.Open();
    EXPECT_TRUE(owner.EndedNormally());
}

TEST(JobGroupOwner, ThatWasAskedBeforeMakesASpentGroup) {
    const ConcurrencyLifetime lifetime;
    bool ran = false;
    CancelReason reason;
    Gate begun;
    Job<void> parent = Orvane::Run(L"parent", [&] {
        begun.Open();
        while (!IsCancellationRequested()) {
            PauseBriefly();
        }
        JobGroup group(L"group");
        group.Run(L"late", [&ran] { ran = true; });
        reason = group.GetCancelReason();
    });
    begun.Wait();
    parent.Cancel();
    parent.Wait();
    EXPECT_FALSE(ran);
    EXPECT_EQ(reason.cause, CancelCause::Parent);
}

TEST(JobGroupOwner, LeavesTheGroupAloneOnceItHasEnded) {
    const ConcurrencyLifetime lifetime;
    std::unique_ptr<JobGroup> group;
    Job<void> parent = Orvane::Run(L"parent", [&group] { group = std::make_unique<JobGroup>(L"group"); });
    parent.Wait();
    parent.Cancel();
    EXPECT_EQ(group->Run(L"job", [] { return 1; }).Get(), 1);
    EXPECT_EQ(group->GetCancelReason().cause, CancelCause::None);
}

int SumTo(JobGroup& group, int number) {
    if (number == 0) {
        return 0;
    }
    return number + group.Run(L"deeper", [&group, number] { return SumTo(group, number - 1); }).Get();
}

TEST(JobGroupSlot, IsGivenBackSoThatARecursionGetsThroughABoundOfOne) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group", 1);
    EXPECT_EQ(group.Run(L"top", [&group] { return SumTo(group, 10); }).Get(), 55);
    group.Wait();
}

TEST(JobGroupSlot, IsGivenBackInAWaitForSeveralJobs) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group", 1);
    const auto sum = [&group] {
        auto first = group.Run(L"first", [] { return 1; });
        auto second = group.Run(L"second", [] { return 2; });
        const auto [one, two] = WhenAll(first, second);
        return one + two;
    };
    EXPECT_EQ(group.Run(L"top", sum).Get(), 3);
}

// Counts the jobs of a group that are at work, that is, not in a wait.
class AtWork {
  public:
    void Begin() {
        const int now = ++m_count;
        int most = m_most;
        while (now > most && !m_most.compare_exchange_weak(most, now)) {
        }
    }
    void End() { --m_count; }
    int Most() const { return m_most; }

  private:
    std::atomic<int> m_count = 0;
    std::atomic<int> m_most = 0;
};

void WorkWithParts(JobGroup& group, AtWork& atWork, int depth) {
    atWork.Begin();
    PauseBriefly();
    if (depth > 0) {
        const auto part = group.Run(L"part", [&group, &atWork, depth] { WorkWithParts(group, atWork, depth - 1); });
        atWork.End();
        part.Wait();
        atWork.Begin();
        PauseBriefly();
    }
    atWork.End();
}

class JobGroupSlots : public testing::TestWithParam<int> {};

TEST_P(JobGroupSlots, AreNeverMoreThanTheBoundThoughJobsGiveThemBackAndTakeThemAgain) {
    const ConcurrencyLifetime lifetime;
    AtWork atWork;
    JobGroup group(L"group", static_cast<std::size_t>(GetParam()));
    for (int i = 0; i < 10; ++i) {
        group.Run(L"job", [&group, &atWork] { WorkWithParts(group, atWork, 2); });
    }
    group.Wait();
    EXPECT_EQ(group.Counts().done, 30U);
    EXPECT_LE(atWork.Most(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Of, JobGroupSlots, testing::Values(1, 2, 5));

// The waits have a time-out: they end although the awaited job still has the only slot.
TEST(JobGroupSlot, IsTakenAgainBeforeTheJobGoesOn) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    std::atomic<bool> wentOn = false;
    JobGroup group(L"group", 1);
    const OpensAtEnd end(turnstile);
    group.Run(L"waits", [&] {
        const auto holder = group.Run(L"holder", [&turnstile] { turnstile.Pass(); });
        while (turnstile.Entered() == 0) {
            static_cast<void>(holder.WaitFor(50ms));
        }
        wentOn = true;
    });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    std::this_thread::sleep_for(120ms);
    EXPECT_FALSE(wentOn);
    turnstile.LetAllGo();
    group.Wait();
    EXPECT_TRUE(wentOn);
}

// More jobs want their slots again than there are: none of those that wait for their turn may slip in.
TEST(JobGroupSlot, GoesToNoOtherJobWhileSeveralWantTheirsAgain) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    std::atomic<int> begun = 0;
    JobGroup group(L"group", 1);
    const OpensAtEnd end(turnstile);
    std::optional<GroupJob<void>> holder;
    const auto wait = [&holder, &turnstile] {
        while (turnstile.Entered() == 0) {
            static_cast<void>(holder->WaitFor(50ms));
        }
    };
    group.Run(L"first", [&] {
        const auto second = group.Run(L"second", [&] {
            const auto third = group.Run(L"third", [&] {
                holder = group.Run(L"holder", [&turnstile] { turnstile.Pass(); });
                for (int i = 0; i < 3; ++i) {
                    group.Run(L"late", [&begun] { ++begun; });
                }
                wait();
            });
            while (!third.WaitFor(50ms) && turnstile.Entered() == 0) {
            }
        });
        while (!second.WaitFor(50ms) && turnstile.Entered() == 0) {
        }
    });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(begun, 0);
    EXPECT_EQ(group.Counts().done, 0U);
    turnstile.LetAllGo();
    group.Wait();
    EXPECT_EQ(begun, 3);
}

TEST(JobGroupSlot, IsNotWaitedForByAJobThatIsAsked) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    std::atomic<bool> left = false;
    JobGroup group(L"group", 1);
    const OpensAtEnd end(turnstile);
    const auto job = group.Run(L"waits", [&] {
        const auto holder = group.Run(L"holder", [&turnstile] { turnstile.Pass(); });
        try {
            while (turnstile.Entered() == 0) {
                static_cast<void>(holder.WaitFor(50ms));
            }
        } catch (const CancelRequestedException&) {
            left = true;
            throw;
        }
    });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    std::this_thread::sleep_for(120ms);
    job.Cancel();
    job.Wait();
    EXPECT_TRUE(left);
    EXPECT_EQ(turnstile.Inside(), 1);
    turnstile.LetAllGo();
    EXPECT_EQ(group.Run(L"next", [] { return 2; }).Get(), 2);
}

// The group of a job elsewhere is no business of this one.
TEST(JobGroupSlot, IsKeptInAWaitForAJobElsewhere) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    std::atomic<bool> began = false;
    JobGroup group(L"group", 1);
    const OpensAtEnd end(turnstile);
    group.Run(L"waits", [&turnstile] {
        const auto elsewhere = Orvane::Run(L"elsewhere", [&turnstile] { turnstile.Pass(); });
        elsewhere.Wait();
    });
    group.Run(L"next", [&began] { began = true; });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(began);
}

TEST(JobGroupWaitInside, IsADeadlockError) {
    const ConcurrencyLifetime lifetime;
    std::error_code error;
    std::string message;
    std::error_code inner;
    const auto wait = [](JobGroup& group) -> std::system_error {
        try {
            group.Wait();
        } catch (const std::system_error& failure) {
            return failure;
        }
        return std::system_error(std::error_code());
    };
    JobGroup group(L"group");
    group.Run(L"waits for itself", [&] {
        const std::system_error failure = wait(group);
        error = failure.code();
        message = failure.what();
        MakeTask(L"inner", [&] { inner = wait(group).code(); })();
    });
    group.Wait();
    EXPECT_EQ(error, std::errc::resource_deadlock_would_occur);
    EXPECT_NE(message.find("waits for itself"), std::string::npos) << message;
    EXPECT_EQ(inner, std::errc::resource_deadlock_would_occur);
}

TEST(JobGroupWaitInside, WithATimeOutIsNotEnough) {
    const ConcurrencyLifetime lifetime;
    bool wasEnough = true;
    JobGroup group(L"group");
    group.Run(L"waits for itself", [&] { wasEnough = group.WaitFor(5ms); });
    group.Wait();
    EXPECT_FALSE(wasEnough);
}

TEST(JobGroupWaitInside, ThroughAJobElsewhereIsADeadlockError) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> errors = 0;
    const auto expectRing = [&errors](const std::function<void()>& wait) {
        try {
            wait();
        } catch (const std::system_error& failure) {
            errors += failure.code() == std::errc::resource_deadlock_would_occur ? 1 : 0;
        }
    };
    JobGroup group(L"group");
    Gate elsewhereIsThere;
    std::optional<Job<void>> elsewhere;
    group.Run(L"inside", [&] {
        elsewhereIsThere.Wait();
        expectRing([&] { elsewhere->Wait(); });
    });
    elsewhere.emplace(RunInNewThread(L"elsewhere", [&] { expectRing([&] { group.Wait(); }); }));
    elsewhereIsThere.Open();
    elsewhere->Wait();
    group.Wait();
    EXPECT_EQ(errors, 1);
}

TEST(JobGroupShutdown, CancelsWhatWaitsAndLetsNobodyHang) {
    ConcurrencyInitialize();
    Blocked blocked;
    std::atomic<bool> ran = false;
    JobGroup group(L"group", 1);
    const auto first = group.Run(L"blocked", [&blocked] { blocked.Stay(); });
    for (int i = 0; i < 50; ++i) {
        group.Run(L"waiting", [&ran] { ran = true; });
    }
    ASSERT_TRUE(blocked.Enter(1));
    std::atomic<bool> wasCancelled = false;
    {
        const PlainThread waiter([&] {
            try {
                group.Wait();
            } catch (const CancelledException&) {
                wasCancelled = true;
            }
        });
        ConcurrencyUninitialize();
    }
    EXPECT_EQ(group.Counts().cancelled, 51U);
    EXPECT_EQ(first.GetCancelReason().cause, CancelCause::Shutdown);
    EXPECT_FALSE(ran);
    EXPECT_THROW(group.Run(L"late", [] {}), Unexpected);
    EXPECT_TRUE(wasCancelled);
}

// It is due when the scheduler is gone.
TEST(JobGroupShutdown, EndsSchedulesAndLetsNobodyHang) {
    ConcurrencyInitialize();
    JobGroup group(L"group");
    group.Schedule(L"later", 1h, 0s, [] {});
    group.Schedule(L"again and again", 1h, 1h, [] {});
    ConcurrencyUninitialize();
    const BackgroundCall wait([&] {
        try {
            group.Wait();
        } catch (const CancelledException&) {
        }
    });
    EXPECT_TRUE(Eventually([&] { return !wait.IsRunning(); }));
    group.Cancel();
}

TEST(JobGroupShutdown, IsReportedToAWaitInsideARun) {
    ConcurrencyInitialize();
    Blocked blocked;
    std::optional<Job<void>> parent = Orvane::Run(L"parent", [&blocked] {
        JobGroup group(L"group", 2);
        for (int i = 0; i < 10; ++i) {
            group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        }
        group.Wait();
    });
    ASSERT_TRUE(blocked.Enter(2));
    ConcurrencyUninitialize();
    EXPECT_THROW(parent->Get(), CancelledException);
    EXPECT_EQ(blocked.Entered(), blocked.Left());
}

std::string MessageOfWait(JobGroup& group) {
    try {
        group.Wait();
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

TEST(JobGroupWithoutThreads, FailsWithTheErrorOfThePool) {
    ThreadStarts starts;
    starts.FailAt(1);
    const ConcurrencyLifetime lifetime;
    bool ran = false;
    JobGroup group(L"group");
    group.Run(L"never", [&ran] { ran = true; });
    group.Run(L"never", [&ran] { ran = true; });
    EXPECT_EQ(MessageOfWait(group), "Failed to spawn thread, resource error");
    EXPECT_FALSE(ran);
    EXPECT_EQ(group.Counts().waiting, 0U);
    ASSERT_FALSE(group.Failures().empty());
    EXPECT_EQ(group.Failures().front().name, L"group");
}

// All workers are taken, and nobody can wait for a growth.
TEST(JobGroupWithoutThreads, FailsIfNobodyCanWaitForTheGrowth) {
    const FakeTicks ticks(100'000);
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(6, &Internal::GlobalThreadPool::Queue));
    starts.FailAt(starts.Count() + 1);
    const auto captured = std::make_shared<int>(1);
    bool ran = false;
    JobGroup group(L"group");
    group.Run(L"never", [captured, &ran] { ran = true; });
    EXPECT_NE(MessageOfWait(group), "");
    EXPECT_FALSE(ran);
    EXPECT_EQ(captured.use_count(), 1);
}

// The first group's runner asks for the growth that fails, and gets one of the last workers. The second one's gets none.
TEST(JobGroupWithoutThreads, FailsIfThePoolIsFullAndCannotGrow) {
    FakeTicks ticks(100'000);
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(6, &Internal::GlobalThreadPool::Queue));
    starts.FailAt(starts.Count() + 2);
    ticks.Advance(1'000);
    Turnstile turnstile;
    JobGroup first(L"first", 1);
    const OpensAtEnd end(turnstile);
    first.Run(L"held", [&turnstile] { turnstile.Pass(); });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    bool ran = false;
    JobGroup second(L"second");
    second.Run(L"never", [&ran] { ran = true; });
    EXPECT_NE(MessageOfWait(second), "");
    EXPECT_FALSE(ran);
}

// One runner is enough: the rest waits for it.
TEST(JobGroupWithoutThreads, GoesOnWithTheRunnerThatItHas) {
    FakeTicks ticks(100'000);
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(5, &Internal::GlobalThreadPool::Queue));
    Turnstile turnstile;
    JobGroup group(L"group");
    const OpensAtEnd end(turnstile);
    group.Run(L"held", [&turnstile] { turnstile.Pass(); });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    starts.FailAt(starts.Count() + 1);
    for (int i = 0; i < 20; ++i) {
        group.Run(L"job", [] {});
    }
    turnstile.LetAllGo();
    group.Wait();
    EXPECT_EQ(group.Counts().done, 21U);
}

}  // namespace
