// What goes in and comes out. The waits and the end have files of their own.
#include "concurrency/scheduler/scheduled_task_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <random>
#include <vector>

#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/plain_thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

ScheduledTask Due(TimePoint start) {
    return ScheduledTask(MakeTask(L"due", [] {}), start, kOnce);
}

std::vector<TimePoint> PopAll(ScheduledTaskQueue& queue) {
    std::vector<TimePoint> starts;
    for (;;) {
        ScheduledTask due;
        if (!queue.PopExpired(due)) {
            return starts;
        }
        starts.push_back(due.GetStartTime());
    }
}

TEST(ScheduledTaskQueue, HandsNothingOutWhenItIsEmpty) {
    ScheduledTaskQueue queue;
    ScheduledTask due;

    EXPECT_FALSE(queue.PopExpired(due));
    EXPECT_EQ(due.GetTask(), Task());
}

TEST(ScheduledTaskQueue, HandsOutTheTaskThatWasPushedWithItsTimes) {
    ScheduledTaskQueue queue;
    const Task task = MakeTask(L"pushed", [] {});
    const TimePoint start = Now();
    queue.Push(ScheduledTask(task, start, 7s));
    ScheduledTask due;

    ASSERT_TRUE(queue.PopExpired(due));

    EXPECT_EQ(due.GetTask(), task);
    EXPECT_EQ(due.GetStartTime(), start);
    ASSERT_TRUE(due.Reschedule());
    EXPECT_EQ(due.GetStartTime(), start + 7s);
}

TEST(ScheduledTaskQueue, HandsOutTheEarliestFirst) {
    ScheduledTaskQueue queue;
    std::mt19937_64 random(20'260'214);
    std::vector<TimePoint> starts{TimePoint::min(), k1970, k1970 - kTick, k1970 + kTick, TimePoint::min() + kTick};
    for (int i = 0; i < 500; ++i) {
        starts.push_back(k1970 + std::chrono::seconds(random() % 1'000));
    }
    std::shuffle(starts.begin(), starts.end(), random);
    for (const TimePoint start : starts) {
        queue.Push(Due(start));
    }

    const std::vector<TimePoint> popped = PopAll(queue);

    std::sort(starts.begin(), starts.end());
    EXPECT_EQ(popped, starts);
}

TEST(ScheduledTaskQueue, HandsATaskOutAtItsVeryTick) {
    const TimePoint start = Now();
    FakeWallClock clock(start - kTick);
    ScheduledTaskQueue queue;
    queue.Push(Due(start));
    ScheduledTask due;

    EXPECT_FALSE(queue.PopExpired(due));
    EXPECT_EQ(due.GetTask(), Task());
    clock.Set(start);
    EXPECT_TRUE(queue.PopExpired(due));
}

TEST(ScheduledTaskQueue, KeepsWhatIsNotDueBehindWhatIs) {
    ScheduledTaskQueue queue;
    const TimePoint now = Now();
    for (const TimePoint start : {TimePoint::max(), now - 1s, now + 1h, now - 2s, TimePoint::max() - kTick}) {
        queue.Push(Due(start));
    }

    EXPECT_EQ(PopAll(queue), (std::vector<TimePoint>{now - 2s, now - 1s}));
}

TEST(ScheduledTaskQueue, StillHandsOutWhatIsDueWhenStopped) {
    ScheduledTaskQueue queue;
    queue.Push(Due(k1970));
    queue.Stop();
    queue.Push(Due(k1970 + kTick));

    EXPECT_EQ(PopAll(queue).size(), 2U);
}

TEST(ScheduledTaskQueue, KeepsWhatFallsDueAfterTheStop) {
    const TimePoint stop = Now();
    FakeWallClock clock(stop);
    ScheduledTaskQueue queue;
    queue.Push(Due(stop + kTick));
    queue.Stop();
    clock.Set(stop + 1h);
    queue.Stop();  // only the first one counts
    queue.Push(Due(stop + 1h));
    queue.Push(Due(stop));

    EXPECT_EQ(PopAll(queue), std::vector<TimePoint>{stop});
}

// As with an interval that leads back to where it was.
TEST(ScheduledTaskQueue, KeepsWhatDoesNotMoveOnOnceStopped) {
    for (const Duration step : {Duration::zero(), -kTick}) {
        ScheduledTaskQueue queue;
        queue.Stop();
        queue.PutBack(Due(k1970 + step), k1970);
        EXPECT_TRUE(PopAll(queue).empty());
        EXPECT_EQ(queue.GetLoad().entries, 1U);
        queue.PutBack(Due(k1970 + kTick), k1970);
        EXPECT_EQ(PopAll(queue).size(), 1U);
    }
}

TEST(ScheduledTaskQueue, SaysHowMuchStandsInItAndWhenTheFirstIsDue) {
    ScheduledTaskQueue queue;
    EXPECT_EQ(queue.GetLoad().entries, 0U);
    EXPECT_EQ(queue.GetLoad().earliest, TimePoint());
    queue.Push(Due(k1970 + 2h));
    queue.Push(Due(k1970 + 1h));
    EXPECT_EQ(queue.GetLoad().entries, 2U);
    EXPECT_EQ(queue.GetLoad().earliest, k1970 + 1h);
}

TEST(ScheduledTaskQueue, LosesNothingThatManyThreadsPush) {
    constexpr int kThreads = 8;
    constexpr int kEach = 200;
    ScheduledTaskQueue queue;
    std::vector<TimePoint> popped;
    {
        std::list<PlainThread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&queue, thread] {
                for (int i = 0; i < kEach; ++i) {
                    queue.Push(Due(k1970 + std::chrono::seconds(i * kThreads + thread)));
                }
            });
        }
        while (popped.size() < 100) {
            const auto more = PopAll(queue);
            popped.insert(popped.end(), more.begin(), more.end());
        }
    }
    const auto rest = PopAll(queue);
    popped.insert(popped.end(), rest.begin(), rest.end());

    std::sort(popped.begin(), popped.end());
    ASSERT_EQ(popped.size(), static_cast<std::size_t>(kThreads * kEach));
    for (int i = 0; i < kThreads * kEach; ++i) {
        ASSERT_EQ(popped[static_cast<std::size_t>(i)], k1970 + std::chrono::seconds(i));
    }
}

}  // namespace
