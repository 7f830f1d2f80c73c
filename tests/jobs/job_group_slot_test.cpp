// Jobs that wait for others of their group.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/group_scene.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_ticks.h"
#include "tests/threadpool/held_tasks.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

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
    std::atomic<bool> wentOn = false;
    GroupScene scene(1);
    scene.group.Run(L"waits", [&] {
        const auto holder = scene.group.Run(L"holder", scene.Held());
        while (scene.turnstile.Entered() == 0) {
            static_cast<void>(holder.WaitFor(50ms));
        }
        wentOn = true;
    });
    ASSERT_TRUE(scene.Entered(1));
    std::this_thread::sleep_for(120ms);
    EXPECT_FALSE(wentOn);
    scene.turnstile.LetAllGo();
    scene.group.Wait();
    EXPECT_TRUE(wentOn);
}

// More jobs want their slots again than there are: none of those that wait for their turn may slip in.
TEST(JobGroupSlot, GoesToNoOtherJobWhileSeveralWantTheirsAgain) {
    std::atomic<int> begun = 0;
    GroupScene scene(1);
    std::optional<GroupJob<void>> holder;
    const auto wait = [&holder, &scene] {
        while (scene.turnstile.Entered() == 0) {
            static_cast<void>(holder->WaitFor(50ms));
        }
    };
    scene.group.Run(L"first", [&] {
        const auto second = scene.group.Run(L"second", [&] {
            const auto third = scene.group.Run(L"third", [&] {
                holder = scene.group.Run(L"holder", scene.Held());
                for (int i = 0; i < 3; ++i) {
                    scene.group.Run(L"late", [&begun] { ++begun; });
                }
                wait();
            });
            while (!third.WaitFor(50ms) && scene.turnstile.Entered() == 0) {
            }
        });
        while (!second.WaitFor(50ms) && scene.turnstile.Entered() == 0) {
        }
    });
    ASSERT_TRUE(scene.Entered(1));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(begun, 0);
    EXPECT_EQ(scene.group.Counts().done, 0U);
    scene.turnstile.LetAllGo();
    scene.group.Wait();
    EXPECT_EQ(begun, 3);
}

TEST(JobGroupSlot, IsNotWaitedForByAJobThatIsAsked) {
    std::atomic<bool> left = false;
    GroupScene scene(1);
    const auto job = scene.group.Run(L"waits", [&] {
        const auto holder = scene.group.Run(L"holder", scene.Held());
        try {
            while (scene.turnstile.Entered() == 0) {
                static_cast<void>(holder.WaitFor(50ms));
            }
        } catch (const CancelRequestedException&) {
            left = true;
            throw;
        }
    });
    ASSERT_TRUE(scene.Entered(1));
    std::this_thread::sleep_for(120ms);
    job.Cancel();
    job.Wait();
    EXPECT_TRUE(left);
    EXPECT_EQ(scene.turnstile.Inside(), 1);
    scene.turnstile.LetAllGo();
    EXPECT_EQ(scene.group.Run(L"next", [] { return 2; }).Get(), 2);
}

// The group of a job elsewhere is no business of this one.
TEST(JobGroupSlot, IsKeptInAWaitForAJobElsewhere) {
    std::atomic<bool> began = false;
    GroupScene scene(1);
    scene.group.Run(L"waits", [&scene] {
        const auto elsewhere = Orvane::Run(L"elsewhere", scene.Held());
        elsewhere.Wait();
    });
    scene.group.Run(L"next", [&began] { began = true; });
    ASSERT_TRUE(scene.Entered(1));
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(began);
}

// The clock stands still, so the runner that is to run the awaited job cannot begin for a while.
TEST(JobGroupSlot, IsKeptForTheNextJobThoughTheWaiterIsBackBeforeItBegins) {
    FakeTicks ticks(100'000);
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(6, &Internal::GlobalThreadPool::Queue));
    ticks.Advance(1'000);
    ASSERT_TRUE(held.Start(7, &Internal::GlobalThreadPool::Queue));
    std::atomic<int> timeOuts = 0;
    std::atomic<bool> isAdded = false;
    JobGroup group(L"group", 1);
    group.Run(L"waits", [&] {
        const auto next = group.Run(L"next", [] {});
        isAdded = true;
        while (!next.WaitFor(1ms)) {
            ++timeOuts;
        }
    });
    EXPECT_TRUE(Eventually([&] { return isAdded.load(); }));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(timeOuts, 0);  // the first wait still wants a place
    ticks.Advance(1'000);
    group.Wait();
    EXPECT_LE(timeOuts, 1);
}

}  // namespace
